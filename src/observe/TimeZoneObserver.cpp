#include "observe/TimeZoneObserver.h"

#include "wire/ServiceLog.h"

namespace ecu::koru::gpspub {

void TimeZoneObserver::message(const std::string& /*topic*/, const com::Message& message) {
  const auto result = m_adapter.deserialize(message);
  if (!result.success) {
    LOG.debug("TimeZoneObserver::message: No tz available!");
    return;
  }
  const pb::TimeZone& zone = result.body;
  setTimeZoneInfo(zone.hour_offset(), zone.minute_offset(), zone.summer_time(), zone.source());
  LOG.debug("timezone info: hour offset: ", zone.hour_offset(), ", min offset: ", zone.minute_offset(),
            ", Summer time: ", zone.summer_time());
}

void TimeZoneObserver::getTimeZoneInfo(TimeZoneInfo& out) const {
  const std::lock_guard lock(m_mutex);
  out = m_time_zone;
}

void TimeZoneObserver::setTimeZoneInfo(int hourOffset, int minuteOffset, bool summerTime,
                                       pb::TimeZone_Source source) {
  const std::lock_guard lock(m_mutex);
  m_time_zone = {hourOffset, minuteOffset, summerTime, source};
}

}  // namespace ecu::koru::gpspub
