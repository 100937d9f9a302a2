#include "nmea/GnssUtils.h"

#include <algorithm>
#include <cmath>

#include "platform/Bytes.h"
#include "platform/Time.h"

namespace ecu::koru::gpspub {

namespace {

constexpr unsigned MIN_NMEA_LEN = 8;
constexpr unsigned NMEA_TAIL = 5;  // "*hh\r\n"
constexpr unsigned MIN_UBLOX_LEN = 8;
constexpr unsigned UBLOX_SYNC_LEN = 2;
constexpr unsigned UBLOX_CHECKSUM_LEN = 2;

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

/// Value of a hex digit of either case, -1 for anything else.
constexpr int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

}  // namespace

void GnssUtils::initDuration() {
  start.fill(time_source().steady_ns());
}

void GnssUtils::setDurationStart(unsigned idx) {
  if (idx < start.size()) start[idx] = time_source().steady_ns();
}

int64_t GnssUtils::getMicrosecDuration(unsigned idx) {
  return idx < start.size() ? (time_source().steady_ns() - start[idx]) / 1000 : 0;
}

void GnssUtils::calcNmeaChecksum(const unsigned char* buf, unsigned len, unsigned char* hi,
                                 unsigned char* lo) {
  const unsigned sum = len > NMEA_TAIL + 1 ? xorOf(buf + 1, len - NMEA_TAIL - 1) : 0;
  *hi = hexDigit(sum >> 4);
  *lo = hexDigit(sum & 0xF);
}

bool GnssUtils::isNmeaChecksumCorrect(const unsigned char* buf, unsigned len) {
  if (len < NMEA_TAIL) return false;
  unsigned char hi = 0;
  unsigned char lo = 0;
  calcNmeaChecksum(buf, len, &hi, &lo);
  return buf[len - 4] == hi && buf[len - 3] == lo;
}

bool GnssUtils::isValidNmeaMessage(const unsigned char* buf, unsigned len) {
  return len >= MIN_NMEA_LEN && buf[0] == '$' && buf[len - NMEA_TAIL] == '*' &&
         isNmeaChecksumCorrect(buf, len);
}

void GnssUtils::calcUbloxChecksum(const unsigned char* buf, unsigned len, unsigned char* a,
                                  unsigned char* b) {
  unsigned sum_a = 0;
  unsigned sum_b = 0;
  for (unsigned i = UBLOX_SYNC_LEN; i + UBLOX_CHECKSUM_LEN < len; ++i) {
    sum_a = (sum_a + buf[i]) & 0xFF;
    sum_b = (sum_b + sum_a) & 0xFF;
  }
  *a = static_cast<unsigned char>(sum_a);
  *b = static_cast<unsigned char>(sum_b);
}

bool GnssUtils::isUbloxChecksumCorrect(const unsigned char* buf, unsigned len) {
  if (len < UBLOX_CHECKSUM_LEN) return false;
  unsigned char a = 0;
  unsigned char b = 0;
  calcUbloxChecksum(buf, len, &a, &b);
  return buf[len - 2] == a && buf[len - 1] == b;
}

bool GnssUtils::fixUbloxChecksum(std::string& msg) {
  if (msg.size() < MIN_UBLOX_LEN) return false;
  auto* frame = reinterpret_cast<unsigned char*>(msg.data());
  const auto len = static_cast<unsigned>(msg.size());
  calcUbloxChecksum(frame, len, frame + len - 2, frame + len - 1);
  return true;
}

void GnssUtils::convertDegMinDecMinToDegDecDeg(const double& in, double& out) {
  const double degrees = std::trunc(in / 100);
  out = degrees + (in - 100 * degrees) / 60;
}

void GnssUtils::convertDegDecDegToDegMinDecMin(const double& in, double& out) {
  double degrees = 0;
  const double fraction = std::modf(in, &degrees);
  out = 100 * degrees + 60 * fraction;
}

int GnssUtils::find2CharsInString(const unsigned char* buf, unsigned char c1, unsigned char c2,
                                  unsigned len) {
  const auto* found = std::find_if(buf, buf + len, [=](unsigned char c) { return c == c1 || c == c2; });
  return found != buf + len ? static_cast<int>(found - buf) : -1;
}

unsigned GnssUtils::findGpsStringPosition(const unsigned char* buf, unsigned n, unsigned len) {
  unsigned commas = 0;
  for (unsigned i = 0; i < len && n > 0; ++i) {
    if (buf[i] == ',' && ++commas == n) return i + 1;
  }
  return 0;
}

unsigned GnssUtils::countNumberCommas(const unsigned char* buf, unsigned len) {
  return static_cast<unsigned>(std::count(buf, buf + len, ','));
}

unsigned GnssUtils::countNumberCommas(const std::string& text) {
  return static_cast<unsigned>(std::count(text.begin(), text.end(), ','));
}

bool GnssUtils::hexToBinary(const std::string& hex, std::string& out) {
  out.clear();
  if (hex.size() % 2 != 0) return false;
  for (size_t i = 0; i < hex.size(); i += 2) {
    const int high = hexValue(hex[i]);
    const int low = hexValue(hex[i + 1]);
    if (high < 0 || low < 0) return false;
    out.push_back(static_cast<char>(high * 16 + low));
  }
  return true;
}

}  // namespace ecu::koru::gpspub
