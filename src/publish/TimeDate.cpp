// The time/date group: UTC of the fix and the offset to local time.

#include <array>

#include "nmea/GnssInfo.h"
#include "publish/SignalGroups.h"
#include "wire/ServiceLog.h"

namespace ecu::koru::gpspub::GnssUtils {

namespace {

constexpr int TM_YEAR = 1900;

constexpr std::array<SignalRow, 6> UTC_ROWS{
    {{"seconds", " seconds ", [](const GnssInfo& info) { return double(info.m_utc_tm.tm_sec); }},
     {"minutes", " minutes ", [](const GnssInfo& info) { return double(info.m_utc_tm.tm_min); }},
     {"hours", " hours ", [](const GnssInfo& info) { return double(info.m_utc_tm.tm_hour); }},
     {"month", " month ", [](const GnssInfo& info) { return double(info.m_utc_tm.tm_mon + 1); }},
     {"day", " day ", [](const GnssInfo& info) { return double(info.m_utc_tm.tm_mday); }},
     {"year", " year ",
      [](const GnssInfo& info) { return double(static_cast<uint16_t>(info.m_utc_tm.tm_year + TM_YEAR)); }}}};

constexpr std::array<SignalRow, 2> OFFSET_ROWS{
    {{"localminuteoffset", " localminuteoffset ",
      [](const GnssInfo& info) { return double(info.m_local_minute_offset); }},
     {"localhouroffset", " localhouroffset ",
      [](const GnssInfo& info) { return double(info.m_local_hour_offset); }}}};

void setValues(rt::SignalGroup& group, std::span<const SignalRow> rows, const GnssInfo& info) {
  fillSignals(group, rows, info);
  for (const SignalRow& row : rows) LOG.detail(logflag::SIGNAL_GROUPS, row.label, row.value(info));
}

void fill(rt::SignalGroup& group, const GnssInfo& info) {
  if (info.getStatus() > 2) {
    setValues(group, UTC_ROWS, info);
    const bool zone_known = info.m_local_hour_offset != OFFSET_NOT_AVAILABLE &&
                            info.m_local_minute_offset != OFFSET_NOT_AVAILABLE;
    zone_known ? setValues(group, OFFSET_ROWS, info) : fillNotAvailable(group, OFFSET_ROWS);
  } else {
    LOG.detail(logflag::SIGNAL_GROUPS, " seconds 0xFF ");
    LOG.detail(logflag::SIGNAL_GROUPS, " minutes 0xFF  hours 0xFF  day 0xFF ");
    LOG.detail(logflag::SIGNAL_GROUPS, " month 0xFF year 0xFF");
    fillNotAvailable(group, UTC_ROWS);
    fillNotAvailable(group, OFFSET_ROWS);
  }
}

}  // namespace

bool create_Timedate_Var6_Message(const std::string& topic, const GnssInfo& info, com::Message& out) {
  return createGroup(topic, GroupTexts(), topic, out, [&](rt::SignalGroup& group) { fill(group, info); });
}

}  // namespace ecu::koru::gpspub::GnssUtils
