#pragma once

#include <cstdint>
#include <optional>

namespace ecu::koru::sim {

/// The true values of one epoch, not rounded. The sentences round them: time to 0.01 s, position to 1e-5
/// minutes (0.9 cm at most), speed to 0.001 knots, course to 0.01 degrees, altitude to 0.1 m, dilutions to
/// 0.01, errors to 0.1 m.
struct Fix {
  int64_t utc_us = 0;                ///< since 1970
  bool valid = true;                 ///< false: the receiver has no fix and sends the time only
  double latitude_deg = 0;           ///< north positive
  double longitude_deg = 0;          ///< east positive, -180 to 180
  double altitude_m = 0;             ///< above mean sea level
  double speed_kmh = 0;              ///< over ground
  std::optional<double> course_deg;  ///< over ground, from north, 0 to below 360; empty at a standstill
  int satellites = 0;                ///< used, of all constellations
  double pdop = 0, hdop = 0, vdop = 0;
  double latitude_error_m = 0, longitude_error_m = 0, altitude_error_m = 0;  ///< standard deviations
};

}  // namespace ecu::koru::sim
