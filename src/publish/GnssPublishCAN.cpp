#include "publish/GnssPublishCAN.h"

#include <array>
#include <functional>

#include "nmea/GnssInfo.h"
#include "platform/com/Topics.h"
#include "publish/SignalGroups.h"
#include "publish/TimeDate.h"
#include "wire/ServiceLog.h"

namespace ecu::koru::gpspub {

namespace {

constexpr int32_t STATUS_DATED_FIX = 3;

/// Returns the field or the getter's result, or "not available" unless the fix is dated.
template <auto VALUE>
double ofFix(const GnssInfo& info) {
  return info.getStatus() == STATUS_DATED_FIX ? std::invoke(VALUE, info) : SIGNAL_NOT_AVAILABLE;
}

/// Returns the field or the getter's result, or "not available" if it is -1.
template <auto VALUE>
double code(const GnssInfo& info) {
  const int32_t value = std::invoke(VALUE, info);
  return value == -1 ? SIGNAL_NOT_AVAILABLE : value;
}

double never(const GnssInfo& /*info*/) {
  return SIGNAL_NOT_AVAILABLE;
}

constexpr std::array<SignalRow, 2> VP1_ROWS{
    {{"latitude", "getLatitudeDecDeg()", ofFix<&GnssInfo::getLatitudeDecDeg>},
     {"longitude", "getLongitudeDecDeg()", ofFix<&GnssInfo::getLongitudeDecDeg>}}};

// The number of satellites used is sent as the number in view.
constexpr std::array<SignalRow, 5> VP2_ROWS{
    {{"totalnumberofsatellitesinview", "getNumSatellites()", code<&GnssInfo::m_num_satellites>},
     {"horizontaldilutionofprecision", "getHdop()", ofFix<&GnssInfo::m_hdop>},
     {"verticaldilutionofprecision", "getVdop()", ofFix<&GnssInfo::m_vdop>},
     {"positiondilutionofprecision", "getPdop()", ofFix<&GnssInfo::m_pdop>},
     {"timedilutionofprecision", "getTdop()", never}}};

constexpr std::array<SignalRow, 4> VDS_ROWS{
    {{"compassbearing", "getHeadingDecDeg()", ofFix<&GnssInfo::m_course>},
     {"navigationbasedvehiclespeed", "getSpeedOverGroundkmhr()", ofFix<&GnssInfo::m_speed>},
     {"altitude", "getAltitude()", ofFix<&GnssInfo::m_altitude>},
     {"pitch", "getPitchGnss()", never}}};

constexpr std::array<SignalRow, 7> P2C1_ROWS{
    {{"navmodegnss_base", "getNavModeGnss()", code<&GnssInfo::getNavModeGnss>},
     {"qualityindicatorgnss_base", "getQualityIndicatorGnss()", code<&GnssInfo::getQualityIndicatorGnss>},
     {"summertimegps_base", "getSummerTime()", ofFix<&GnssInfo::m_summer_time>},
     {"vehposwgs84altitudegnss_base", "getAltitude()", ofFix<&GnssInfo::m_altitude>},
     {"vehposprecisiongnss_base", "getAccuracy()", ofFix<&GnssInfo::m_position_error>},
     // Neither is ever measured.
     {"gnsspositionage_base", "getPositionAge()", never},
     {"timesynchdelaygnss_base", "getTimeSynchDelay()", never}}};

constexpr GroupTexts TEXTS{.after_topic = " topic"};

bool createGroupMessage(const std::string& topic, std::span<const SignalRow> rows, const GnssInfo& info,
                        com::Message& out) {
  return createGroup(topic, TEXTS, topic, out,
                     [&](rt::SignalGroup& group) { fillSignals(group, rows, info); });
}

}  // namespace

bool GnssPublishCAN::create_VP1_Base_Message(const GnssInfo& info, com::Message& out) {
  return createGroupMessage(topic::VP1_TX, VP1_ROWS, info, out);
}

bool GnssPublishCAN::create_VP2_Base_Message(const GnssInfo& info, com::Message& out) {
  return createGroupMessage(topic::VP2_TX, VP2_ROWS, info, out);
}

bool GnssPublishCAN::create_VDS_Base_Message(const GnssInfo& info, com::Message& out) {
  return createGroupMessage(topic::VDS_TX, VDS_ROWS, info, out);
}

bool GnssPublishCAN::create_P2C1_Base_Message(const GnssInfo& info, com::Message& out) {
  return createGroupMessage(topic::P2C1_TX, P2C1_ROWS, info, out);
}

bool GnssPublishCAN::create_gnss_timestamp_ns(const GnssInfo& info, com::Message& out) {
  constexpr const char* SIGNAL = "timestamp_ns";
  const auto stamp = static_cast<uint64_t>(info.m_frame_time);
  std::array<uint8_t, sizeof stamp> data{};
  for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<uint8_t>(stamp >> 8 * i);
  return createGroup(topic::GNSS_TIMESTAMP, TEXTS, topic::GNSS_TIMESTAMP, out, [&](rt::SignalGroup& group) {
    if (!group.set_signal_data(SIGNAL, data)) LOG.error("Unable to set_signal_data for ", SIGNAL);
  });
}

void GnssPublishCAN::publish_VP1_Base(std::shared_ptr<com::ITransportClient>& client, const GnssInfo& info) {
  publishGroup(*client, topic::VP1_TX, create_VP1_Base_Message, info);
}

void GnssPublishCAN::publish_VP2_Base(std::shared_ptr<com::ITransportClient>& client, const GnssInfo& info) {
  publishGroup(*client, topic::VP2_TX, create_VP2_Base_Message, info);
}

void GnssPublishCAN::publish_VDS_Base(std::shared_ptr<com::ITransportClient>& client, const GnssInfo& info) {
  publishGroup(*client, topic::VDS_TX, create_VDS_Base_Message, info);
}

void GnssPublishCAN::publish_P2C1_Base(std::shared_ptr<com::ITransportClient>& client, const GnssInfo& info) {
  publishGroup(*client, topic::P2C1_TX, create_P2C1_Base_Message, info);
}

void GnssPublishCAN::publish_timeDate_Var6(std::shared_ptr<com::ITransportClient>& client,
                                           const GnssInfo& info) {
  publishGroup(*client, topic::TD_TX, GnssUtils::create_Timedate_Var6_Message, topic::TD_TX, info);
}

void GnssPublishCAN::publish_gnss_timestamp_ns(std::shared_ptr<com::ITransportClient>& client,
                                               const GnssInfo& info) {
  publishGroup(*client, topic::GNSS_TIMESTAMP, create_gnss_timestamp_ns, info);
}

void GnssPublishCAN::publishFrame(std::shared_ptr<com::ITransportClient>& client, GnssInfo& info,
                                  std::vector<std::string>& /*nmeaSentences*/) {
  if (info.m_receiver_flag == 0 && info.getStatus() > 2) info.m_status = STATUS_WARNING;
  publish_VP1_Base(client, info);
  publish_P2C1_Base(client, info);
  publish_VP2_Base(client, info);
  publish_VDS_Base(client, info);
  publish_timeDate_Var6(client, info);
  publish_gnss_timestamp_ns(client, info);
}

}  // namespace ecu::koru::gpspub
