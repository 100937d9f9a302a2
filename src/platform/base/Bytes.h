#pragma once

#include <bit>
#include <cstdint>
#include <cstring>

/// Examines eight bytes at a time in portable C++. A mask has the high bit set of each byte with the
/// property. The first byte is the lowest one.
namespace ecu::koru::bytes {

static_assert(std::endian::native == std::endian::little, "the first byte of a word is its lowest one");

inline constexpr uint64_t HIGH_BITS = 0x8080808080808080;
inline constexpr uint64_t LOW_BITS = 0x0101010101010101;

[[nodiscard]] inline uint64_t load(const void* from) {
  uint64_t word;
  std::memcpy(&word, from, sizeof word);
  return word;
}

/// Returns the mask of the bytes that equal `value`.
[[nodiscard]] constexpr uint64_t equal(uint64_t word, unsigned char value) {
  const uint64_t difference = word ^ (LOW_BITS * value);
  return ~(((difference & ~HIGH_BITS) + ~HIGH_BITS) | difference | ~HIGH_BITS);
}

/// Returns the mask of the bytes outside 0x20..0x7E.
[[nodiscard]] constexpr uint64_t not_printable(uint64_t word) {
  const uint64_t low = word & ~HIGH_BITS;
  const uint64_t below_20 = ~(low + LOW_BITS * 0x60);
  const uint64_t is_7f = low + LOW_BITS;
  return (word | below_20 | is_7f) & HIGH_BITS;
}

/// Returns the index of the first marked byte of a mask, or 8 if the mask is 0.
[[nodiscard]] constexpr int first(uint64_t mask) {
  return std::countr_zero(mask) / 8;
}

}  // namespace ecu::koru::bytes
