#pragma once

#include <charconv>
#include <concepts>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace ecu::koru {

/// Returns an unsigned 32-bit number; the base is decimal, hexadecimal after "0x" or octal after a leading 0.
/// Leading blanks and a sign are allowed, text after the number is ignored, and a negative number wraps as on
/// the 32-bit target. Throws std::invalid_argument if the text does not start with a number and
/// std::out_of_range if the magnitude is above 0xFFFFFFFF.
[[nodiscard]] uint32_t to_u32_base0(const std::string& text);

/// Returns the whole text as a number, or nothing if it is not a number from `min` to `max`.
[[nodiscard]] std::optional<int64_t> to_int_within(std::string_view text, int64_t min, int64_t max,
                                                   int base = 10);

/// Does the same for a number without a sign, in the same bases as to_u32_base0().
[[nodiscard]] std::optional<int64_t> to_int_within_base0(std::string_view text, int64_t min, int64_t max);

/// Returns the whole text as a number, whatever the locale, or nothing if it is not one or does not fit.
template <std::integral Number>
[[nodiscard]] std::optional<Number> to_number(std::string_view text, int base = 10) {
  const char* const end = text.data() + text.size();
  Number value{};
  const auto [stop, error] = std::from_chars(text.data(), end, value, base);
  return error == std::errc{} && stop == end ? std::optional(value) : std::nullopt;
}

/// Does the same for a number with a fraction; "inf" and "nan" are numbers too.
template <std::floating_point Number>
[[nodiscard]] std::optional<Number> to_number(std::string_view text) {
  const char* const end = text.data() + text.size();
  Number value{};
  const auto [stop, error] = std::from_chars(text.data(), end, value);
  return error == std::errc{} && stop == end ? std::optional(value) : std::nullopt;
}

}  // namespace ecu::koru
