#include "wire/NmeaLine.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "platform/base/Bytes.h"

namespace ecu::koru::gpspub::GnssUtils {

namespace {

constexpr unsigned MIN_NMEA_LEN = 8;
constexpr unsigned NMEA_TAIL = 5;  // "*hh\r\n"

unsigned char xorOf(const unsigned char* data, size_t len) {
  uint64_t words = 0;
  for (; len >= sizeof words; data += sizeof words, len -= sizeof words) words ^= bytes::load(data);
  words ^= words >> 32;
  words ^= words >> 16;
  words ^= words >> 8;
  auto sum = static_cast<unsigned char>(words);
  for (; len > 0; ++data, --len) sum ^= *data;
  return sum;
}

constexpr unsigned char hexDigit(unsigned nibble) {
  return static_cast<unsigned char>("0123456789ABCDEF"[nibble]);
}

}  // namespace

void calcNmeaChecksum(const unsigned char* buf, unsigned len, unsigned char* hi, unsigned char* lo) {
  const unsigned sum = len > NMEA_TAIL + 1 ? xorOf(buf + 1, len - NMEA_TAIL - 1) : 0;
  *hi = hexDigit(sum >> 4);
  *lo = hexDigit(sum & 0xF);
}

bool isNmeaChecksumCorrect(const unsigned char* buf, unsigned len) {
  if (len < NMEA_TAIL) return false;
  unsigned char hi = 0;
  unsigned char lo = 0;
  calcNmeaChecksum(buf, len, &hi, &lo);
  return buf[len - 4] == hi && buf[len - 3] == lo;
}

bool isValidNmeaMessage(const unsigned char* buf, unsigned len) {
  return len >= MIN_NMEA_LEN && buf[0] == '$' && buf[len - NMEA_TAIL] == '*' &&
         isNmeaChecksumCorrect(buf, len);
}

int find2CharsInString(const unsigned char* buf, unsigned char c1, unsigned char c2, unsigned len) {
  const auto* found = std::find_if(buf, buf + len, [=](unsigned char c) { return c == c1 || c == c2; });
  return found != buf + len ? static_cast<int>(found - buf) : -1;
}

}  // namespace ecu::koru::gpspub::GnssUtils
