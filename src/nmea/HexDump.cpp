#include "nmea/HexDump.h"

namespace ecu::koru::gpspub {

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

}  // namespace ecu::koru::gpspub
