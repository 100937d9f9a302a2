#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace ecu::koru::sim {

/// At least `width` digits. Of numbers that are not negative.
[[nodiscard]] std::string zero_padded(int64_t value, int width);
/// Fixed decimals by integers alone: neither locale nor binary fractions show.
[[nodiscard]] std::string decimal(double value, int decimals, int integer_width = 1);
/// `digits` capital hexadecimal digits.
[[nodiscard]] std::string hex(uint32_t value, int digits);
/// "01 AB": two digits a byte, blanks between them.
[[nodiscard]] std::string hex_bytes(std::span<const uint8_t> bytes);
/// Microseconds since 1970 as "2026-11-21T10:15:30.250Z".
[[nodiscard]] std::string iso8601(int64_t utc_us);

}  // namespace ecu::koru::sim
