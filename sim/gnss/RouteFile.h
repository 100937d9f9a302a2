#pragma once

#include <string>
#include <string_view>

#include "sim/gnss/Route.h"

namespace ecu::koru::sim {

/// The speed where a file gives neither times nor speeds, km/h.
inline constexpr double default_route_speed_kmh = 50.0;

/// A route from a file; text that begins with '<' is GPX, anything else CSV. A route that does not end where
/// it began is closed with a straight leg at its mean speed. Throws FileError with file, line and reason.
[[nodiscard]] Route load_route(const std::string& path);

/// The track points (`trkpt`) of all segments: attributes `lat` and `lon`, elements `ele` (m; without: as the
/// point before) and `time` (ISO 8601; every point has one or none has). `name` stands in the errors.
[[nodiscard]] Route parse_gpx(std::string_view text, const std::string& name);

/// One point a line: lat,lon,alt[,speed] in degrees, m and km/h. A first line of words is a header and names
/// the columns lat, lon, alt and speed in its own order (alt and speed may be missing, other columns are
/// ignored). Lines that are empty or begin with '#' are skipped.
[[nodiscard]] Route parse_csv(std::string_view text, const std::string& name);

}  // namespace ecu::koru::sim
