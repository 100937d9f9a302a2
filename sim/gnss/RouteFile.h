#pragma once

#include <string>

#include "sim/gnss/Route.h"

namespace ecu::koru::sim {

/// A route with a text for people: how far, how long, how fast, and how it gets back to its start.
struct LoadedRoute {
  Route route;
  std::string drive;
};

/// Loads a route from a file. Text that begins with '<' is GPX, anything else is CSV. A route that does
/// not end at its start is closed with a straight leg at its mean speed. Throws FileError with file,
/// line and reason.
///
/// GPX: the track points (`trkpt`) of all segments, with attributes `lat` and `lon`, elements `ele` (m; if
/// missing, that of the previous point; before the first one, that of the first one) and `time` (ISO 8601;
/// every point has one or none has).
///
/// CSV: one point a line, lat,lon,alt[,speed] in degrees, m and km/h. If the first line begins with a word,
/// it is a header that names the columns lat, lon, alt and speed in any order; alt and speed may be missing,
/// and other columns are ignored. Lines that are empty or begin with '#' are skipped.
[[nodiscard]] LoadedRoute load_route(const std::string& path);

}  // namespace ecu::koru::sim
