#include "observe/GnssIcanObserver.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <limits>
#include <optional>
#include <string_view>
#include <utility>

#include "nmea/UtcCalendar.h"
#include "platform/base/Time.h"
#include "wire/ServiceLog.h"

namespace ecu::koru::gpspub {

namespace {

constexpr double NOT_AVAILABLE = std::numeric_limits<double>::quiet_NaN();
constexpr int64_t NS_PER_MS = 1'000'000;
constexpr int64_t FIRST_PERIOD_MS = 2000;
constexpr int64_t PERIOD_MS = 1700;     // while time/date frames come
constexpr int64_t OWN_PERIOD_MS = 999;  // without them
constexpr size_t MAX_SIGNALS = 6;
constexpr double US_PER_S = 1e6;

struct SignalName {
  const char* signal;
  const char* logged;
};

constexpr std::array<SignalName, 2> VP1_SIGNALS{{{"latitude", "latitude"}, {"longitude", "longitude"}}};
constexpr std::array<SignalName, 4> VP2_SIGNALS{
    {{"totalnumberofsatellitesinview", "totalnumberofsatellitesinview"},
     {"horizontaldilutionofprecision", "horizontaldilutionofprecision"},
     {"verticaldilutionofprecision", "verticaldilutionofprecision"},
     {"positiondilutionofprecision", "positiondilutionofprecision"}}};
constexpr std::array<SignalName, 4> VDS_SIGNALS{
    {{"altitude", "altitude"},
     {"navigationbasedvehiclespeed", "navigationbasedvehiclespeed"},
     {"compassbearing", "compassbearing"},
     {"pitch", "pitchgnss_base"}}};
constexpr std::array<SignalName, 4> P2C1_SIGNALS{
    {{"navmodegnss_base", "navmodegnss_base"},
     {"qualityindicatorgnss_base", "qualityindicatorgnss_base"},
     {"vehposwgs84altitudegnss_base", "vehposwgs84altitudegnss_base"},
     {"vehposprecisiongnss_base", "vehposprecisiongnss_base"}}};
constexpr std::array<SignalName, 6> TD_SIGNALS{{{"seconds", "seconds"},
                                                {"minutes", "minutes"},
                                                {"hours", "hours"},
                                                {"day", "day"},
                                                {"month", "month"},
                                                {"year", "year"}}};

/// Returns the whole number of a count or code; -1 if it is not available or does not fit.
int32_t wholeNumber(double value) {
  const bool fits = value >= 0 && value <= std::numeric_limits<int32_t>::max();
  return fits ? static_cast<int32_t>(value) : -1;
}

bool isCalendarDay(const std::tm& time) {
  const std::chrono::year_month_day date(std::chrono::year(time.tm_year + 1900),
                                         std::chrono::month(static_cast<unsigned>(time.tm_mon + 1)),
                                         std::chrono::day(static_cast<unsigned>(time.tm_mday)));
  return date.ok();
}

/// Returns the time that the six values make in their order; empty if the calendar does not have it.
std::optional<std::tm> calendarTime(std::span<const double> values) {
  std::tm tm{};
  tm.tm_sec = wholeNumber(values[0]);
  tm.tm_min = wholeNumber(values[1]);
  tm.tm_hour = wholeNumber(values[2]);
  tm.tm_mday = wholeNumber(std::ceil(values[3]));  // in quarter days, of which 1 to 4 are day 1
  tm.tm_mon = wholeNumber(values[4]) - 1;
  tm.tm_year = wholeNumber(values[5]) - 1900;
  if (!isCalendarTime(tm) || !isCalendarDay(tm)) return std::nullopt;
  return tm;
}

}  // namespace

struct GnssIcanObserver::Group {
  const std::string& topic;
  std::span<const SignalName> signals;
  bool (GnssIcanObserver::*store)(std::span<const double>);  // false: the values make no sense
  void (GnssIcanObserver::*set_default)();
};

const std::array<GnssIcanObserver::Group, 5>& GnssIcanObserver::groups() {
  using Observer = GnssIcanObserver;
  static const std::array<Group, 5> GROUPS{
      {{topic_vp1_base, VP1_SIGNALS, &Observer::unpack_vp1_base, &Observer::setDefault_vp1_base},
       {topic_p2c1_base, P2C1_SIGNALS, &Observer::unpack_p2c1_base, &Observer::setDefault_p2c1_base},
       {topic_vp2_base, VP2_SIGNALS, &Observer::unpack_vp2_base, &Observer::setDefault_vp2_base},
       {topic_vds_base, VDS_SIGNALS, &Observer::unpack_vds_base, &Observer::setDefault_vds_base},
       {topic_timedate_var6, TD_SIGNALS, &Observer::unpack_timedate_var6, &Observer::resetTimeDate}}};
  return GROUPS;
}

GnssIcanObserver::GnssIcanObserver(IFrameWait& wait)
    : m_wait(wait), m_send_period_ms(FIRST_PERIOD_MS), m_last_wake_ns(time_source().steady_ns()) {}

// -- Messages from the bus

void GnssIcanObserver::message(const std::string& topic, const com::Message& message) {
  const auto group =
      std::find_if(groups().begin(), groups().end(), [&](const Group& each) { return each.topic == topic; });
  if (group == groups().end() || message.retained) return;
  const bool is_time_date = group->topic == topic_timedate_var6;
  {
    const std::lock_guard lock(m_mutex);
    unpack(*group, message);
    if (is_time_date) {
      m_gnss_info.m_frame_time = static_cast<int64_t>(message.timestamp_ns);
      m_released = true;
    }
  }
  if (is_time_date) m_wait.wake();
}

void GnssIcanObserver::unpack(const Group& group, const com::Message& message) {
  std::array<double, MAX_SIGNALS> values{};
  const auto used = std::span(values).first(group.signals.size());
  if (takeSignals(group, message, used)) {
    complained(group) = false;
  } else {
    (this->*group.set_default)();
  }
}

/// Stores the signals in the record. Logs and returns false if the group cannot be used.
bool GnssIcanObserver::takeSignals(const Group& group, const com::Message& message,
                                   std::span<double> values) {
  const auto result = rt::SignalAdapter::instance().unpack(group.topic, message);
  if (!result.success) {
    complain(group, "Unpacking of SignalGroup for topic '" + group.topic + "' failed with: " + result.error);
    return false;
  }
  for (size_t i = 0; i < values.size(); ++i) {
    const auto signal = result.group.signal(group.signals[i].signal);
    const auto status = signal ? signal->status() : rt::SignalStatus::ERROR;
    if (status != rt::SignalStatus::VALID && status != rt::SignalStatus::NOT_AVAILABLE) {
      complain(group, std::string("Invalid signal ") + group.signals[i].logged + " for topic '" +
                          group.topic + "'. Request failed");
      return false;
    }
    values[i] = signal->value_scaled();  // NaN if not available
  }
  if ((this->*group.store)(values)) return true;
  complain(group, "Invalid signal structure for topic '" + group.topic + "': there is no such date or time");
  return false;
}

bool& GnssIcanObserver::complained(const Group& group) {
  return m_complained[static_cast<size_t>(&group - groups().data())];
}

void GnssIcanObserver::complain(const Group& group, const std::string& text) {
  if (!std::exchange(complained(group), true)) {
    LOG.warning(text);
  } else {
    LOG.debug(text);
  }
}

bool GnssIcanObserver::unpack_vp1_base(std::span<const double> values) {
  if (std::isnan(values[0]) || std::isnan(values[1])) {
    setDefault_vp1_base();
  } else {
    m_gnss_info.setLatitudeDegDec(values[0]);
    m_gnss_info.setLongitudeDegDec(values[1]);
  }
  return true;
}

bool GnssIcanObserver::unpack_vp2_base(std::span<const double> values) {
  m_gnss_info.m_num_satellites = wholeNumber(values[0]);
  m_gnss_info.m_hdop = values[1];
  m_gnss_info.m_vdop = values[2];
  m_gnss_info.m_pdop = values[3];
  return true;
}

bool GnssIcanObserver::unpack_vds_base(std::span<const double> values) {
  m_gnss_info.m_altitude = values[0];
  m_gnss_info.m_speed = values[1];
  m_gnss_info.m_course = values[2];
  m_gnss_info.m_spare_3 = values[3];
  return true;
}

bool GnssIcanObserver::unpack_p2c1_base(std::span<const double> values) {
  m_gnss_info.setNavModeGnss(wholeNumber(values[0]));
  m_gnss_info.setQualityIndicatorGnss(wholeNumber(values[1]));
  m_gnss_info.m_altitude = values[2];
  m_gnss_info.m_position_error = values[3];
  return true;
}

/// The six values are used together or not at all. Without a navigation mode there is no fix to date.
bool GnssIcanObserver::unpack_timedate_var6(std::span<const double> values) {
  resetTimeDate();
  if (std::any_of(values.begin(), values.end(), [](double value) { return std::isnan(value); })) return true;
  const auto time = calendarTime(values);
  if (!time) return false;
  if (m_gnss_info.getStatus() == 1) return true;
  m_gnss_info.m_utc_tm = *time;
  m_gnss_info.m_utc_fraction_us = std::llround((values[0] - std::floor(values[0])) * US_PER_S);
  return true;
}

void GnssIcanObserver::setDefault_vp1_base() {
  m_gnss_info.setLatitudeDegDec(NOT_AVAILABLE);
  m_gnss_info.setLongitudeDegDec(NOT_AVAILABLE);
}

void GnssIcanObserver::setDefault_vp2_base() {
  m_gnss_info.m_num_satellites = -1;
  m_gnss_info.m_hdop = m_gnss_info.m_vdop = m_gnss_info.m_pdop = m_gnss_info.m_spare_2 = NOT_AVAILABLE;
}

void GnssIcanObserver::setDefault_vds_base() {
  m_gnss_info.m_altitude = m_gnss_info.m_speed = m_gnss_info.m_course = m_gnss_info.m_spare_3 = NOT_AVAILABLE;
}

void GnssIcanObserver::setDefault_p2c1_base() {
  m_gnss_info.setNavModeGnss(-1);
  m_gnss_info.setQualityIndicatorGnss(-1);
  m_gnss_info.m_altitude = m_gnss_info.m_position_error = NOT_AVAILABLE;
}

void GnssIcanObserver::resetTimeDate() {
  m_gnss_info.m_utc_tm = std::tm{};
  m_gnss_info.m_utc_fraction_us = 0;
  m_gnss_info.setUtcTime(-1);
  m_gnss_info.m_local_hour_offset = m_gnss_info.m_local_minute_offset = OFFSET_NOT_AVAILABLE;
  m_gnss_info.m_frame_time = 0;
}

// -- The record for the service

GnssInfo GnssIcanObserver::getGnssInfo() const {
  const std::lock_guard lock(m_mutex);
  return m_gnss_info;
}

int32_t GnssIcanObserver::getGnssInfoStatus() const {
  const std::lock_guard lock(m_mutex);
  return m_gnss_info.getStatus();
}

GnssInfo GnssIcanObserver::takeGnssInfo() {
  const std::lock_guard lock(m_mutex);
  GnssInfo info = m_gnss_info;
  resetTimeDate();
  m_released = false;
  return info;
}

void GnssIcanObserver::clearInfo() {
  const std::lock_guard lock(m_mutex);
  m_gnss_info.clear();
}

void GnssIcanObserver::setDefault_timedate_var6() {
  const std::lock_guard lock(m_mutex);
  resetTimeDate();
}

// -- Pacing

void GnssIcanObserver::restart() {
  const std::lock_guard lock(m_mutex);
  m_gnss_info.clear();
  m_released = false;
  m_send_period_ms = FIRST_PERIOD_MS;
  m_last_wake_ns = time_source().steady_ns();
}

bool GnssIcanObserver::timeoutToSendFrame() {
  std::unique_lock lock(m_mutex);
  const int64_t deadline = m_last_wake_ns + m_send_period_ms * NS_PER_MS;
  int64_t now = time_source().steady_ns();
  for (bool waits = true; waits && !m_released && now < deadline; now = time_source().steady_ns()) {
    lock.unlock();
    waits = m_wait.waitForFrame(deadline - now);
    lock.lock();
  }
  m_released = false;
  m_deadline_passed = now >= deadline;
  m_last_wake_ns = now;
  m_send_period_ms = m_deadline_passed ? OWN_PERIOD_MS : PERIOD_MS;
  return m_deadline_passed;
}

}  // namespace ecu::koru::gpspub
