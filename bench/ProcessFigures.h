#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

namespace bench {

/// The kernel's counts of a running process since its start.
struct ProcessFigures {
  int64_t processor_ns = 0;  ///< of all running threads, as the scheduler counts
  int64_t wake_ups = 0;      ///< voluntary context switches of all running threads
  int64_t resident_kib = 0;  ///< current memory, with program files
  int64_t private_kib = 0;   ///< of that, heap, stacks and other memory without a file
  int64_t peak_kib = 0;      ///< the highest resident_kib since the start
};

/// Throws std::runtime_error if the process is gone or the kernel lacks one of the counts.
[[nodiscard]] ProcessFigures readFigures(pid_t pid);

/// What a process uses of the machine per fix or per second, in all its threads.
struct Load {
  double processor_us = 0;
  double wake_ups = 0;
};

/// Divides what was used between two readings by the number of fixes or seconds between them.
[[nodiscard]] Load loadBetween(const ProcessFigures& first, const ProcessFigures& last, double count);

/// Returns the machine's load of the last minute, as text.
[[nodiscard]] std::string loadAverage();

/// Returns the present processor time of one wake-up on this machine, us, from a thread that only sleeps.
/// Takes half a second.
[[nodiscard]] double wakeUpCost_us();

}  // namespace bench
