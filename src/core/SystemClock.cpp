#include "core/SystemClock.h"

#include "platform/base/Time.h"
#include "wire/ServiceLog.h"

namespace ecu::koru::gpspub {

namespace {
// A clock at or after 2016-11-07 16:48:58 UTC was set by somebody.
constexpr int64_t PLAUSIBLE_SECONDS = 1478537338;
constexpr int64_t US_PER_S = 1'000'000;
}  // namespace

bool SystemClock::checkSetSystemTime(GnssInfo& info) {
  if (m_system_time_set) return true;
  const int64_t seconds = time_source().wall().tv_sec;
  if (seconds >= PLAUSIBLE_SECONDS) {
    LOG.info("checkSetSystemTime time already set. System time sec = ", seconds);
  } else {
    LOG.info("checkSetSystemTime must set time. Old System time sec = ", seconds);
    setSystemTime(info);
  }
  m_system_time_set = true;
  return true;
}

void SystemClock::setSystemTime(GnssInfo& info) {
  const int64_t utc_us = info.getUtcTimeUs();
  if (utc_us == -1) {
    LOG.error("Failed to set system time, utc_time_in_us not set");
    return;
  }
  const int64_t seconds = utc_us / US_PER_S;
  const int64_t microseconds = utc_us - seconds * US_PER_S;
  timeval now{};
  now.tv_sec = static_cast<time_t>(seconds);
  now.tv_usec = static_cast<suseconds_t>(microseconds);
  if (time_source().set_wall(now)) {
    LOG.info("Set system time to: ", seconds, ".", microseconds);
  } else {
    LOG.error("Failed to set system time to: ", seconds, ".", microseconds);
  }
}

}  // namespace ecu::koru::gpspub
