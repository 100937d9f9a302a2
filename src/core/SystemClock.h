#pragma once

#include "nmea/GnssInfo.h"

namespace ecu::koru::gpspub {

/// Sets the operating system's clock once, from the first receiver time, if it is not plausible already.
/// Service thread only.
class SystemClock {
 public:
  /// The clock is left alone until this is switched on.
  void enableSetting(bool on) { m_system_time_set = !on; }

  /// Sets the clock from `info`, the fix just dated, unless the clock is plausible already. Acts only once,
  /// even if that fails. Always returns true.
  bool checkSetSystemTime(GnssInfo& info);

 private:
  static void setSystemTime(GnssInfo& info);

  bool m_system_time_set = true;
};

}  // namespace ecu::koru::gpspub
