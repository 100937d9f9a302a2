#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "sim/gnss/Fix.h"

namespace ecu::koru::sim {

/// The sentences of an epoch, which the receiver sends in one burst. Times are us of the caller's clock.
struct Burst {
  int64_t start_us = 0;
  /// A sentence that would not be finished by then is not sent. INT64_MAX: everything is sent, however late.
  int64_t deadline_us = INT64_MAX;
  int64_t since_power_on_us = 0;
  std::vector<std::string> sentences;
  std::optional<Fix> fix{};  ///< the content of the sentences; empty for a recording
};

/// A simulated drive or a recording.
class IBurstSource {
 public:
  virtual ~IBurstSource() = default;
  /// Returns the start of the burst that take() returns next; INT64_MAX after the last one.
  [[nodiscard]] virtual int64_t next_start_us() const = 0;
  [[nodiscard]] virtual Burst take() = 0;
};

}  // namespace ecu::koru::sim
