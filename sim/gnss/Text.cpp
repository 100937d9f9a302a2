#include "sim/gnss/Text.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <string_view>

#include "sim/gnss/Utc.h"

namespace ecu::koru::sim {

std::string zero_padded(int64_t value, int width) {
  const std::string digits = std::to_string(value);
  return std::string(static_cast<size_t>(width) - std::min(static_cast<size_t>(width), digits.size()), '0') +
         digits;
}

std::string decimal(double value, int decimals, int integer_width) {
  int64_t scale = 1;
  for (int i = 0; i < decimals; ++i) scale *= 10;
  const int64_t scaled = std::llround(value * static_cast<double>(scale));
  const int64_t magnitude = std::abs(scaled);
  std::string text = scaled < 0 ? "-" : "";
  text += zero_padded(magnitude / scale, integer_width);
  text += '.';
  return text += zero_padded(magnitude % scale, decimals);
}

std::string hex(uint32_t value, int digits) {
  constexpr std::string_view LETTERS = "0123456789ABCDEF";
  std::string text(static_cast<size_t>(digits), '0');
  for (auto at = text.rbegin(); at != text.rend(); ++at, value >>= 4U) *at = LETTERS[value & 0xFU];
  return text;
}

std::string hex_bytes(std::span<const uint8_t> bytes) {
  std::string text;
  for (const uint8_t byte : bytes) text += (text.empty() ? "" : " ") + hex(byte, 2);
  return text;
}

std::string iso8601(int64_t utc_us) {
  const CivilTime t = civil_time(utc_us);
  return zero_padded(t.year, 4) + "-" + zero_padded(t.month, 2) + "-" + zero_padded(t.day, 2) + "T" +
         zero_padded(t.hour, 2) + ":" + zero_padded(t.minute, 2) + ":" + zero_padded(t.second, 2) + "." +
         zero_padded(t.microsecond / 1000, 3) + "Z";
}

}  // namespace ecu::koru::sim
