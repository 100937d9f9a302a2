#pragma once

#include <string>

namespace ecu::koru::gpspub {

/// Each byte as two upper-case hex digits, one space behind it when `with_space`; two spaces more after every
/// `bytes_per_group` bytes, a line feed after every `bytes_per_line` bytes. Empty for a length of 0 or less.
[[nodiscard]] std::string hexDumpMessage(const unsigned char* data, int len, int bytes_per_line,
                                         int bytes_per_group, bool with_space);

namespace GnssUtils {

/// Hex text, either case, to bytes. Returns false for an odd length (`out` empty) and for a pair that is not
/// a hex number (`out` holds the bytes before it).
[[nodiscard]] bool hexToBinary(const std::string& hex, std::string& out);

}  // namespace GnssUtils

}  // namespace ecu::koru::gpspub
