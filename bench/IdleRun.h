#pragma once

#include <cstddef>
#include <vector>

#include "bench/ProcessFigures.h"
#include "support/Process.h"

namespace bench {

/// A state in which the service has no receiver to listen to.
struct IdleState {
  const char* name;
  test::Words unit;         ///< options of ecu-sim that lead to it; the device does not exist
  bool has_frames = false;  ///< another unit sends its signal groups once a second
};

struct IdleResult {
  size_t published = 0;  ///< positions during the measurement
  Load per_second;
};

/// Runs the service in that state and measures it for `seconds` once it has started. Throws like ServiceRun.
[[nodiscard]] IdleResult measureIdle(const IdleState& state, int seconds);

}  // namespace bench
