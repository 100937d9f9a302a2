#pragma once

#include <cstdint>

/// Stopwatches 0 to 7, monotonic. Service thread only.
namespace ecu::koru::gpspub::GnssUtils {

/// Starts all stopwatches.
void initDuration();
/// Starts one stopwatch. Nothing uses it.
void setDurationStart(unsigned idx);
/// Returns the microseconds since the stopwatch was started, or 0 for an index above 7.
[[nodiscard]] int64_t getMicrosecDuration(unsigned idx);

}  // namespace ecu::koru::gpspub::GnssUtils
