#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace ecu::koru::sim {

/// Returns at least `width` digits. The number must not be negative.
[[nodiscard]] std::string zero_padded(int64_t value, int width);
/// Returns the value with fixed decimals. It uses integers only, so neither the locale nor
/// binary fractions matter.
[[nodiscard]] std::string decimal(double value, int decimals, int integer_width = 1);
/// Returns `digits` upper-case hexadecimal digits.
[[nodiscard]] std::string hex(uint32_t value, int digits);
/// Returns "01 AB": two digits a byte, separated by blanks.
[[nodiscard]] std::string hex_bytes(std::span<const uint8_t> bytes);
/// Returns microseconds since 1970 as "2026-11-21T10:15:30.250Z".
[[nodiscard]] std::string iso8601(int64_t utc_us);

}  // namespace ecu::koru::sim
