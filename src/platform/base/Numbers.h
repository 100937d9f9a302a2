#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace ecu::koru {

/// An unsigned 32-bit number with automatic base: decimal, "0x" hexadecimal, leading 0 octal. Leading blanks
/// and a sign are allowed, text behind the number is ignored, a negative number wraps as on the 32-bit
/// target. Throws std::invalid_argument when the text does not start with a number and std::out_of_range
/// above 0xFFFFFFFF.
[[nodiscard]] uint32_t to_u32_base0(const std::string& text);

/// The whole text as a decimal number from `min` to `max`; nothing otherwise.
[[nodiscard]] std::optional<int64_t> to_int_within(std::string_view text, int64_t min, int64_t max);

/// Likewise, without a sign, with automatic base: decimal, "0x" hexadecimal, leading 0 octal.
[[nodiscard]] std::optional<int64_t> to_int_within_base0(std::string_view text, int64_t min, int64_t max);

}  // namespace ecu::koru
