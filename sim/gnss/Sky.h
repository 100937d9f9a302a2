#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "sim/gnss/Fix.h"

namespace ecu::koru::sim {

enum class Constellation : uint8_t { gps, glonass, galileo, beidou };

/// One satellite as the receiver sees it.
struct Satellite {
  int number;  ///< as NMEA counts; Galileo from 301 and BeiDou from 401 before version 4.10, which has system
               ///< ids
  int elevation_deg, azimuth_deg, cn0_dbhz;
  bool used;
};

/// What a constellation is called in sentences.
struct ConstellationNames {
  std::string_view option;  ///< on the command line
  std::string_view talker;
  int system_id;  ///< of NMEA 4.10
};
[[nodiscard]] const ConstellationNames& names_of(Constellation constellation);

/// The satellites in view at a time; they wander slowly, at most 12 of a constellation. Always the same for a
/// time.
[[nodiscard]] std::vector<Satellite> satellites_in_view(Constellation constellation, int64_t utc_us);

/// Fills in what a fix says of its own quality (satellites, dilutions, errors) at its time.
void describe_quality(Fix& fix, const std::vector<Constellation>& constellations);

}  // namespace ecu::koru::sim
