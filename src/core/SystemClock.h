#pragma once

#include "nmea/GnssInfo.h"

namespace ecu::koru::gpspub {

/// Sets the operating system's clock once from the first receiver time, when the clock is not plausible by
/// itself. Service thread only.
class SystemClock {
 public:
  /// Until it is switched on there is nothing to do.
  void enableSetting(bool on) { m_system_time_set = !on; }
  [[nodiscard]] bool isSet() const { return m_system_time_set; }

  /// Uses up the single attempt, whatever comes of it; always true. `info` is the fix whose time was just
  /// parsed.
  bool checkSetSystemTime(GnssInfo& info);

 private:
  static void setSystemTime(GnssInfo& info);

  bool m_system_time_set = true;
};

}  // namespace ecu::koru::gpspub
