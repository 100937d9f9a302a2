#include "nmea/NmeaFields.h"

#include <algorithm>
#include <cctype>
#include <clocale>
#include <cstdlib>
#include <limits>
#include <stdexcept>
#include <string>

#include "platform/base/Bytes.h"

namespace ecu::koru::gpspub {

namespace {

// A number below 2^53 and a power of ten up to 10^22 are exact doubles, so one division of them gives the
// correctly rounded value, just as strtod does.
constexpr unsigned MAX_EXACT_DIGITS = 15;
constexpr std::array<double, MAX_EXACT_DIGITS + 1> POWER_OF_TEN{1e0, 1e1, 1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                                                1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15};

constexpr bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

double fullNumber(std::string_view text) {
  static const locale_t c_locale = newlocale(LC_ALL_MASK, "C", nullptr);
  return strtod_l(std::string(text).c_str(), nullptr, c_locale);
}

}  // namespace

NmeaFields::NmeaFields(std::string_view sentence, unsigned max_commas) : m_sentence(sentence) {
  const size_t most = std::min<size_t>(max_commas, m_at.size());
  const char* const text = sentence.data();
  const size_t size = sentence.size();
  size_t i = 0;
  for (; i + sizeof(uint64_t) <= size && m_commas < most; i += sizeof(uint64_t)) {
    uint64_t commas = bytes::equal(bytes::load(text + i), ',');
    for (; commas != 0 && m_commas < most; commas &= commas - 1) {
      m_at[m_commas++] = static_cast<uint32_t>(i) + static_cast<uint32_t>(bytes::first(commas));
    }
  }
  for (; i < size && m_commas < most; ++i) {
    if (text[i] == ',') m_at[m_commas++] = static_cast<uint32_t>(i);
  }
}

std::string_view NmeaFields::field(unsigned k) const {
  if (k == 0 || k > m_commas) return {};
  const size_t start = m_at[k - 1] + 1;
  if (k < m_commas) return {m_sentence.data() + start, m_at[k] - start};
  const std::string_view rest = m_sentence.substr(start);
  return rest.substr(0, rest.find_first_of(",*"));
}

double nmeaNumber(std::string_view text) {
  uint64_t digits = 0;
  unsigned count = 0;
  unsigned decimals = 0;
  bool point = false;
  for (const char c : text) {
    if (isDigit(c)) {
      digits = digits * 10 + static_cast<unsigned>(c - '0');
      ++count;
      decimals += point ? 1 : 0;
    } else if (c == '.' && !point) {
      point = true;
    } else {
      return fullNumber(text);
    }
    if (count > MAX_EXACT_DIGITS) return fullNumber(text);
  }
  return static_cast<double>(digits) / POWER_OF_TEN[decimals];
}

int32_t nmeaCount(std::string_view text) {
  size_t i = 0;
  while (i < text.size() && std::isspace(static_cast<unsigned char>(text[i])) != 0) ++i;
  const bool negative = i < text.size() && text[i] == '-';
  if (i < text.size() && (negative || text[i] == '+')) ++i;
  if (i == text.size() || !isDigit(text[i])) throw std::invalid_argument("no number");
  int64_t value = 0;
  for (; i < text.size() && isDigit(text[i]); ++i) {
    value = value * 10 + (text[i] - '0');
    if (value > std::numeric_limits<int32_t>::max()) throw std::out_of_range("number too large");
  }
  if (negative && value != 0) throw std::out_of_range("number below zero");
  return static_cast<int32_t>(value);
}

bool isDigits(std::string_view text) {
  return std::all_of(text.begin(), text.end(), isDigit);
}

bool isNumeric(std::string_view text) {
  return !text.empty() &&
         std::all_of(text.begin(), text.end(), [](char c) { return isDigit(c) || c == '.'; });
}

}  // namespace ecu::koru::gpspub
