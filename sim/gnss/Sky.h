#pragma once

#include <array>
#include <cstdint>
#include <string_view>
#include <vector>

#include "sim/gnss/Fix.h"

namespace ecu::koru::sim {

enum class Constellation : uint8_t { gps, glonass, galileo, beidou };
/// In the order of their sentences.
inline constexpr std::array ALL_CONSTELLATIONS{Constellation::gps, Constellation::glonass,
                                               Constellation::galileo, Constellation::beidou};

struct Satellite {
  int number;  ///< NMEA 4.0 number; Galileo from 301, BeiDou from 401
  int elevation_deg, azimuth_deg, cn0_dbhz;
  bool used;
};

/// A constellation's names and numbers in the protocols.
struct ConstellationNames {
  std::string_view option;  ///< on the command line
  std::string_view talker;
  int system_id;         ///< in NMEA 4.10
  uint8_t gnss_id;       ///< in CFG-GNSS
  unsigned monitor_bit;  ///< of MON-GNSS
};
[[nodiscard]] const ConstellationNames& names_of(Constellation constellation);

/// Returns the satellites in view, at most 12 of a constellation. They move slowly, and depend only
/// on the time.
[[nodiscard]] std::vector<Satellite> satellites_in_view(Constellation constellation, int64_t utc_us);

/// Fills in the quality of a fix (satellites, dilutions, errors) at its time.
void describe_quality(Fix& fix, const std::vector<Constellation>& constellations);

}  // namespace ecu::koru::sim
