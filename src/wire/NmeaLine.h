#pragma once

/// An NMEA 0183 line is "$" + body + "*" + two upper-case hex digits + CR LF. The digits are the XOR of
/// everything between "$" and "*".
namespace ecu::koru::gpspub::GnssUtils {

/// Stores the checksum's two hex digits in `hi` and `lo`. `len` counts the whole line with its CR LF.
void calcNmeaChecksum(const unsigned char* buf, unsigned len, unsigned char* hi, unsigned char* lo);
[[nodiscard]] bool isNmeaChecksumCorrect(const unsigned char* buf, unsigned len);
/// Returns true for a line of at least 8 bytes with the right checksum. Its last two bytes do not matter.
[[nodiscard]] bool isValidNmeaMessage(const unsigned char* buf, unsigned len);

/// Returns the index of the first of the two bytes in [0, len), or -1 if neither occurs.
[[nodiscard]] int find2CharsInString(const unsigned char* buf, unsigned char c1, unsigned char c2,
                                     unsigned len);

}  // namespace ecu::koru::gpspub::GnssUtils
