#pragma once

#include <string>
#include <string_view>

#include "sim/gnss/Route.h"

namespace ecu::koru::sim {

/// The speed if a file has neither times nor speeds, km/h.
inline constexpr double default_route_speed_kmh = 50.0;

/// Loads a route from a file. Text that begins with '<' is GPX, anything else is CSV. A route that does
/// not end at its start is closed with a straight leg at its mean speed. Throws FileError with file,
/// line and reason.
[[nodiscard]] Route load_route(const std::string& path);

/// Reads the track points (`trkpt`) of all segments: attributes `lat` and `lon`, elements `ele` (m; if
/// missing, that of the previous point) and `time` (ISO 8601; every point has one or none has). `name` is for
/// the error text.
[[nodiscard]] Route parse_gpx(std::string_view text, const std::string& name);

/// Reads one point a line: lat,lon,alt[,speed] in degrees, m and km/h. If the first line begins with a word,
/// it is a header that names the columns lat, lon, alt and speed in any order; alt and speed may be missing,
/// and other columns are ignored. Skips lines that are empty or begin with '#'.
[[nodiscard]] Route parse_csv(std::string_view text, const std::string& name);

}  // namespace ecu::koru::sim
