#pragma once

#include <cstddef>
#include <vector>

#include "bench/ProcessFigures.h"

namespace bench {

struct DaemonRate {
  int hz;
  unsigned baud;  // of the receiver and of the service
};

struct DaemonResult {
  size_t driven = 0;              ///< epochs that the receiver sent during the measurement
  std::vector<double> delays_ms;  ///< one for each fix that the subscriber got, ascending
  Load per_fix;                   ///< of the service
  ProcessFigures end;             ///< of the service, at the end
};

/// Runs the service with a simulated receiver in its own process. After the first fixes have arrived,
/// measures it for `seconds`. A fix's delay is the time from the write of the last byte of its GST sentence
/// to its arrival at a subscriber. Throws like ServiceRun.
[[nodiscard]] DaemonResult measureDaemon(const DaemonRate& rate, int seconds);

}  // namespace bench
