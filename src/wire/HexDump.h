#pragma once

#include <string>

namespace ecu::koru::gpspub {

/// Returns each byte as two upper-case hex digits, followed by a space if `with_space`. Two more spaces
/// follow every `bytes_per_group` bytes, a line feed every `bytes_per_line` bytes. Empty if `len` <= 0.
[[nodiscard]] std::string hexDumpMessage(const unsigned char* data, int len, int bytes_per_line,
                                         int bytes_per_group, bool with_space);

/// Returns all bytes on one line.
[[nodiscard]] inline std::string hexText(const unsigned char* data, int len) {
  return hexDumpMessage(data, len, 0, 0, true);
}
/// Returns lines of 50 bytes in groups of 10.
[[nodiscard]] inline std::string hexLines(const unsigned char* data, int len) {
  return hexDumpMessage(data, len, 50, 10, true);
}

namespace GnssUtils {

/// Converts hex text of either case to bytes. Returns false for an odd length (`out` is empty) and for a pair
/// that is not a hex number (`out` holds the bytes before it).
[[nodiscard]] bool hexToBinary(const std::string& hex, std::string& out);

}  // namespace GnssUtils

}  // namespace ecu::koru::gpspub
