#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace ecu::koru::tap {

/// A message with the time at which it came. Borrows topic and payload.
struct Arrival {
  std::string_view topic;
  std::span<const uint8_t> payload;
  int64_t wall_us = 0;   ///< system clock, since 1970
  uint64_t boot_ns = 0;  ///< since boot
  bool retained = false;
};

/// Converts a time since boot to the present system clock, us since 1970.
[[nodiscard]] int64_t wall_us_of(uint64_t boot_ns);

}  // namespace ecu::koru::tap
