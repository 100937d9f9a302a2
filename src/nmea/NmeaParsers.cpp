#include "nmea/NmeaParsers.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

#include "nmea/NmeaFields.h"
#include "nmea/UtcCalendar.h"

namespace ecu::koru::gpspub::GnssUtils {

namespace {

constexpr double KMH_PER_KNOT = 1.852;
constexpr double US_PER_S = 1'000'000;
constexpr size_t TIME_LEN = 6;           // hhmmss
constexpr size_t TIME_FRACTION_LEN = 9;  // hhmmss.ss
constexpr size_t DATE_LEN = 6;           // ddmmyy

// The comma that ends the last field read from each sentence.
constexpr unsigned RMC_COMMAS = 10;
constexpr unsigned GGA_COMMAS = 10;
constexpr unsigned GSA_COMMAS = 18;
constexpr unsigned GST_COMMAS = 8;
// A sentence with fewer commas is ignored.
constexpr unsigned RMC_MIN_COMMAS = 9;
constexpr unsigned GGA_MIN_COMMAS = 9;
constexpr unsigned GST_MIN_COMMAS = 7;

void takeNumber(std::string_view field, double& value) {
  if (!field.empty()) value = nmeaNumber(field);
}

void takeNumeric(std::string_view field, double& value) {
  if (isNumeric(field)) value = nmeaNumber(field);
}

/// Takes one angle and its hemisphere; `negative` ('S' or 'W') makes it negative, whatever sign it had.
void takeAngle(std::string_view angle, std::string_view hemisphere, char negative, double& value) {
  takeNumeric(angle, value);
  if (hemisphere.size() == 1 && hemisphere[0] == negative && !std::isnan(value)) value = -std::fabs(value);
}

struct TimeOfDay {
  std::string_view text;     // hhmmss
  int64_t fraction_us = -1;  // -1: malformed
};

TimeOfDay timeOfDay(std::string_view field) {
  if (field.size() == TIME_LEN) return {field, isDigits(field) ? 0 : -1};
  if (field.size() != TIME_FRACTION_LEN || !isNumeric(field)) return {};
  const size_t point = field.find('.');
  if (point == std::string_view::npos || field.size() - point <= 2) return {};
  const std::string_view fraction = field.substr(point);
  if (fraction[1] == '0' && fraction[2] == '0') return {field.substr(0, point), 0};
  return {field.substr(0, point), static_cast<int64_t>(nmeaNumber(fraction) * US_PER_S)};
}

void takeDate(std::string_view date, const TimeOfDay& time, GnssInfo& info) {
  if (time.fraction_us == -1) return;
  if (info.m_status != STATUS_VALID && (info.m_utc_valid_flags & UTC_VALID) == 0) return;
  if (date.size() != DATE_LEN || !isDigits(date)) return;
  if (parseDateTime(date, time.text, info.m_utc_tm)) info.m_utc_fraction_us = time.fraction_us;
}

}  // namespace

void parseRMCString(const std::string& sentence, GnssInfo& info) {
  const NmeaFields fields(sentence, RMC_COMMAS);
  if (fields.commas() < RMC_MIN_COMMAS) return;
  const TimeOfDay time = timeOfDay(fields.field(1));
  if (time.fraction_us == -1) info.m_utc_fraction_us = -1;
  if (const auto status = fields.field(2); status.size() == 1) {
    info.m_status = static_cast<unsigned char>(status[0]);
  }
  takeAngle(fields.field(3), fields.field(4), 'S', info.m_latitude);
  takeAngle(fields.field(5), fields.field(6), 'W', info.m_longitude);
  if (const auto knots = fields.field(7); !knots.empty()) info.m_speed = nmeaNumber(knots) * KMH_PER_KNOT;
  const auto course = fields.field(8);
  info.m_course = course.empty() ? std::numeric_limits<double>::quiet_NaN() : nmeaNumber(course);
  takeDate(fields.field(9), time, info);
}

void parseGGAString(const std::string& sentence, GnssInfo& info) {
  const NmeaFields fields(sentence, GGA_COMMAS);
  if (fields.commas() < GGA_MIN_COMMAS) return;
  // This comes first because it may throw: a sentence is taken as a whole or not at all.
  if (const auto satellites = fields.field(7); !satellites.empty())
    info.m_num_satellites = nmeaCount(satellites);
  takeNumber(fields.field(1), info.m_gga_time);
  takeAngle(fields.field(2), fields.field(3), 'S', info.m_latitude);
  takeAngle(fields.field(4), fields.field(5), 'W', info.m_longitude);
  if (const auto quality = fields.field(6); quality.size() == 1) info.m_quality_indicator = quality[0] - '0';
  takeNumber(fields.field(9), info.m_altitude);
}

void parseGSAString(const std::string& sentence, GnssInfo& info) {
  const NmeaFields fields(sentence, GSA_COMMAS);
  if (const auto mode = fields.field(2); mode.size() == 1) info.m_nav_mode = mode[0] - '0';
  takeNumber(fields.field(15), info.m_pdop);
  takeNumber(fields.field(16), info.m_hdop);
  takeNumber(fields.field(17), info.m_vdop);
}

void parseGSTString(const std::string& sentence, GnssInfo& info) {
  const NmeaFields fields(sentence, GST_COMMAS);
  if (fields.commas() < GST_MIN_COMMAS) return;
  double latitude_error = 0;
  double longitude_error = 0;
  takeNumber(fields.field(6), latitude_error);
  takeNumber(fields.field(7), longitude_error);
  info.m_position_error = std::max(latitude_error, longitude_error);
}

void convertDegMinDecMinToDegDecDeg(const double& in, double& out) {
  const double degrees = std::trunc(in / 100);
  out = degrees + (in - 100 * degrees) / 60;
}

void convertDegDecDegToDegMinDecMin(const double& in, double& out) {
  double degrees = 0;
  const double fraction = std::modf(in, &degrees);
  out = 100 * degrees + 60 * fraction;
}

unsigned findGpsStringPosition(const unsigned char* buf, unsigned n, unsigned len) {
  unsigned commas = 0;
  for (unsigned i = 0; i < len && n > 0; ++i) {
    if (buf[i] == ',' && ++commas == n) return i + 1;
  }
  return 0;
}

unsigned countNumberCommas(const unsigned char* buf, unsigned len) {
  return static_cast<unsigned>(std::count(buf, buf + len, ','));
}

unsigned countNumberCommas(const std::string& text) {
  return static_cast<unsigned>(std::count(text.begin(), text.end(), ','));
}

}  // namespace ecu::koru::gpspub::GnssUtils
