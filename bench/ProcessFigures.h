#pragma once

#include <sys/types.h>

#include <cstdint>

namespace bench {

/// What the kernel counted of a running process since its start.
struct ProcessFigures {
  int64_t processor_ns = 0;  ///< of all threads that live, by the scheduler's own count
  int64_t wake_ups = 0;      ///< of all threads that live: how often one slept and went on
  int64_t resident_kib = 0;  ///< present memory, program files included
  int64_t private_kib = 0;   ///< of that, heap and stacks and other memory without a file
  int64_t peak_kib = 0;      ///< the most that was ever present
};

/// Throws std::runtime_error when the process is gone or the kernel keeps no such count.
[[nodiscard]] ProcessFigures readFigures(pid_t pid);

/// What one wake-up costs on this machine at present, in processor time: that of a thread which does nothing
/// but sleep. Takes half a second.
[[nodiscard]] double wakeUpCost_us();

}  // namespace bench
