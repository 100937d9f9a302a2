#pragma once

#include <string>

#include "nmea/GnssInfo.h"

namespace ecu::koru::gpspub::GnssUtils {

// -- Sentences into the record. Each function takes a validated sentence with its CR LF. Malformed fields
// leave the record as it is.

/// Status, position, speed, course, date and time.
void parseRMCString(const std::string& sentence, GnssInfo& info);
/// Position, quality, satellites, altitude. Throws std::invalid_argument or std::out_of_range, the record
/// unchanged, if the satellites field is not a number.
void parseGGAString(const std::string& sentence, GnssInfo& info);
/// Navigation mode and dilutions.
void parseGSAString(const std::string& sentence, GnssInfo& info);
/// Position error.
void parseGSTString(const std::string& sentence, GnssInfo& info);

// -- Conversions

/// ddmm.mmmm to decimal degrees. Keeps the sign and NaN.
void convertDegMinDecMinToDegDecDeg(const double& in, double& out);
/// Decimal degrees to ddmm.mmmm.
void convertDegDecDegToDegMinDecMin(const double& in, double& out);
/// Returns the index after the n-th comma, or 0 if there are fewer. Nothing uses it.
[[nodiscard]] unsigned findGpsStringPosition(const unsigned char* buf, unsigned n, unsigned len);
/// Nothing uses it.
[[nodiscard]] unsigned countNumberCommas(const unsigned char* buf, unsigned len);
/// Nothing uses it.
[[nodiscard]] unsigned countNumberCommas(const std::string& text);

}  // namespace ecu::koru::gpspub::GnssUtils
