#pragma once

#include <cstdint>
#include <optional>

namespace ecu::koru::tap {

/// Returns the time from the envelope's time stamp to the arrival; all in ns since boot. Empty if there is no
/// stamp (0), or if it is one of another clock: later than the arrival, or a minute and more before it.
[[nodiscard]] constexpr std::optional<uint64_t> delay_ns(uint64_t sent_ns, uint64_t arrival_ns) {
  constexpr uint64_t OTHER_CLOCK_NS = 60'000'000'000;
  if (sent_ns == 0 || sent_ns > arrival_ns || arrival_ns - sent_ns >= OTHER_CLOCK_NS) return std::nullopt;
  return arrival_ns - sent_ns;
}

}  // namespace ecu::koru::tap
