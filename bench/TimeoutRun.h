#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace bench {

/// A time-out of the service, and by how many milliseconds its effect came too late each time.
struct Lateness {
  std::string name;
  std::vector<double> late_ms;
};

// Each runs the service until its time-outs came at least `times` times. Throw like ServiceRun.
[[nodiscard]] std::vector<Lateness> measureLosses(size_t times);
[[nodiscard]] Lateness measureWithoutDevice(size_t times);
[[nodiscard]] Lateness measureWithoutFrames(size_t times);
[[nodiscard]] Lateness measurePolls(size_t times);

}  // namespace bench
