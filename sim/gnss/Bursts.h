#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "sim/gnss/Fix.h"

namespace ecu::koru::sim {

/// What the receiver sends in one go: the sentences of an epoch. Times are us of the caller's clock.
struct Burst {
  int64_t start_us = 0;
  /// What would not be out by then is not sent at all; INT64_MAX: everything is sent, however late.
  int64_t deadline_us = INT64_MAX;
  int64_t since_power_on_us = 0;
  std::vector<std::string> sentences;
  std::optional<Fix> fix{};  ///< what the sentences tell; nothing in a recording
};

/// Where bursts come from: a simulated drive or a recording.
class IBurstSource {
 public:
  virtual ~IBurstSource() = default;
  /// Start of the burst that take() gives next; INT64_MAX: there is none any more.
  [[nodiscard]] virtual int64_t next_start_us() const = 0;
  [[nodiscard]] virtual Burst take() = 0;
};

}  // namespace ecu::koru::sim
