#pragma once

#include "nmea/GnssInfo.h"

namespace ecu::koru::gpspub {

/// Sets the operating system's clock once, from the first receiver time, if it is not plausible already.
/// Service thread only.
class SystemClock {
 public:
  /// The clock is left alone until this is switched on.
  void enableSetting(bool on) { m_system_time_set = !on; }

  /// Uses up the single attempt, even if it fails. Always returns true. `info` is the fix just dated.
  bool checkSetSystemTime(GnssInfo& info);

 private:
  static void setSystemTime(GnssInfo& info);

  bool m_system_time_set = true;
};

}  // namespace ecu::koru::gpspub
