#include "wire/HexDump.h"

namespace ecu::koru::gpspub {

namespace {

/// Returns the value of a hex digit of either case, or -1 for anything else.
constexpr int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

}  // namespace

std::string hexDumpMessage(const unsigned char* data, int len, int bytes_per_line, int bytes_per_group,
                           bool with_space) {
  static constexpr char DIGITS[] = "0123456789ABCDEF";
  std::string dump;
  if (len <= 0) return dump;
  dump.reserve(static_cast<size_t>(len) * 4);
  for (int i = 0; i < len; ++i) {
    dump.push_back(DIGITS[data[i] >> 4]);
    dump.push_back(DIGITS[data[i] & 0xF]);
    if (with_space) dump.push_back(' ');
    if (bytes_per_group > 0 && (i + 1) % bytes_per_group == 0) dump.append("  ");
    if (bytes_per_line > 0 && (i + 1) % bytes_per_line == 0) dump.push_back('\n');
  }
  return dump;
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
