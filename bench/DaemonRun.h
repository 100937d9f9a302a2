#pragma once

#include <atomic>
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
  double processor_us = 0;        ///< per fix, all threads of the service
  double wake_ups = 0;            ///< per fix, all threads of the service
  ProcessFigures end;             ///< of the service, at the end
};

/// Runs the service of this build with a simulated receiver and a private broker. After the first fixes have
/// arrived, measures it for `seconds`. A fix's delay is the time from the write of the last byte of its GST
/// sentence to its arrival at a subscriber. Throws std::runtime_error with the reason if that fails, and soon
/// after `stop` becomes true. Needs mosqpp::lib_init().
[[nodiscard]] DaemonResult measureDaemon(const DaemonRate& rate, int seconds, const std::atomic<bool>& stop);

}  // namespace bench
