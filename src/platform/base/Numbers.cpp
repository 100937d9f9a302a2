#include "platform/base/Numbers.h"

#include <cerrno>
#include <cstdlib>
#include <limits>
#include <stdexcept>

namespace ecu::koru {

uint32_t to_u32_base0(const std::string& text) {
  const auto start = text.find_first_not_of(" \t\n\v\f\r");
  const bool negative = start != std::string::npos && text[start] == '-';
  errno = 0;
  char* end = nullptr;
  const unsigned long long value = std::strtoull(text.c_str(), &end, 0);
  if (end == text.c_str()) throw std::invalid_argument("stoul");
  const unsigned long long magnitude = negative ? 0ULL - value : value;
  if (errno == ERANGE || magnitude > std::numeric_limits<uint32_t>::max()) throw std::out_of_range("stoul");
  return static_cast<uint32_t>(value);
}

std::optional<int64_t> to_int_within(std::string_view text, int64_t min, int64_t max, int base) {
  const auto value = to_number<int64_t>(text, base);
  return value && *value >= min && *value <= max ? value : std::nullopt;
}

std::optional<int64_t> to_int_within_base0(std::string_view text, int64_t min, int64_t max) {
  int base = 10;
  if (text.starts_with("0x") || text.starts_with("0X")) {
    base = 16;
    text.remove_prefix(2);
  } else if (text.starts_with('0')) {
    base = 8;
  }
  if (text.starts_with('-')) return std::nullopt;
  return to_int_within(text, min, max, base);
}

}  // namespace ecu::koru
