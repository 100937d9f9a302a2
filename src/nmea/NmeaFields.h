#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace ecu::koru::gpspub {

/// The fields of one sentence, found in a single pass. Field k is the text between the k-th and the next
/// comma; the last one ends at '*'. The sentence must outlive this object.
class NmeaFields {
 public:
  /// Finds the first `max_commas` commas, at most 18.
  NmeaFields(std::string_view sentence, unsigned max_commas);

  [[nodiscard]] unsigned commas() const { return m_commas; }
  /// Returns field k, counted from 1; empty if there is no such field.
  [[nodiscard]] std::string_view field(unsigned k) const;

 private:
  std::string_view m_sentence;
  unsigned m_commas = 0;
  std::array<uint32_t, 18> m_at;  // positions of the commas
};

/// Reads a number as strtod does in the C locale: with blanks, sign, exponent, hexadecimal, "inf" and "nan",
/// and 0 if the text does not start with a number. The plain decimals that receivers send take a shorter and
/// equally exact way.
[[nodiscard]] double nmeaNumber(std::string_view text);

/// Returns the decimal number at the start of the text. Throws std::invalid_argument without a number and
/// std::out_of_range if it is negative or above the range of int32_t.
[[nodiscard]] int32_t nmeaCount(std::string_view text);

[[nodiscard]] bool isDigits(std::string_view text);
/// Returns true if the text is not empty and every character is a digit or a point.
[[nodiscard]] bool isNumeric(std::string_view text);

}  // namespace ecu::koru::gpspub
