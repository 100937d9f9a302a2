#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace ecu::koru::gpspub {

/// The fields of one sentence, found in a single pass. Field k is the text between the k-th and the next
/// comma; the last one ends at '*'. The sentence must outlive it.
class NmeaFields {
 public:
  /// Looks for `max_commas` (at most 18) and no further.
  NmeaFields(std::string_view sentence, unsigned max_commas);

  /// Commas found.
  [[nodiscard]] unsigned commas() const { return m_commas; }
  /// Empty when there is no such field. k from 1.
  [[nodiscard]] std::string_view field(unsigned k) const;

 private:
  std::string_view m_sentence;
  unsigned m_commas = 0;
  std::array<uint32_t, 18> m_at;  // positions of the commas
};

/// strtod in the C locale: blanks, sign, exponent, hexadecimal, "inf" and "nan" as it reads them, 0 when the
/// text does not start with a number. The plain decimals that receivers send take a short, equally exact way.
[[nodiscard]] double nmeaNumber(std::string_view text);

/// An unsigned decimal number at the start of the text. Throws std::invalid_argument when there is none and
/// std::out_of_range when an int32_t cannot hold it.
[[nodiscard]] int32_t nmeaCount(std::string_view text);

/// True when every character is a digit.
[[nodiscard]] bool isDigits(std::string_view text);
/// True when the text is not empty and every character is a digit or a point.
[[nodiscard]] bool isNumeric(std::string_view text);

}  // namespace ecu::koru::gpspub
