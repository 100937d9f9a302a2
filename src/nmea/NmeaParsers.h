#pragma once

#include <string>

#include "nmea/GnssInfo.h"

namespace ecu::koru::gpspub::GnssUtils {

// -- Sentences

// Each function takes a validated sentence with its CR LF. Malformed angles and dates leave their values
// unchanged; other decimals are read by nmeaNumber().

/// Reads status, position, speed, course, date and time.
void parseRMCString(const std::string& sentence, GnssInfo& info);
/// Reads position, quality, satellites and altitude. Throws std::invalid_argument or std::out_of_range and
/// leaves the record unchanged if nmeaCount() cannot read the satellites field.
void parseGGAString(const std::string& sentence, GnssInfo& info);
/// Reads navigation mode and dilutions.
void parseGSAString(const std::string& sentence, GnssInfo& info);
/// Reads the position error.
void parseGSTString(const std::string& sentence, GnssInfo& info);

// -- Conversions

/// Converts ddmm.mmmm to decimal degrees. Keeps the sign and NaN.
void convertDegMinDecMinToDegDecDeg(const double& in, double& out);
/// Converts decimal degrees to ddmm.mmmm.
void convertDegDecDegToDegMinDecMin(const double& in, double& out);
/// Returns the index after the n-th comma, or 0 if there are fewer. Nothing uses it.
[[nodiscard]] unsigned findGpsStringPosition(const unsigned char* buf, unsigned n, unsigned len);
/// Nothing uses it.
[[nodiscard]] unsigned countNumberCommas(const unsigned char* buf, unsigned len);
/// Nothing uses it.
[[nodiscard]] unsigned countNumberCommas(const std::string& text);

}  // namespace ecu::koru::gpspub::GnssUtils
