#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "proto/nvxproto.pb.h"

/// Reads the satellites of a fix from its GSV and GSA sentences. Pure functions, for any thread.
namespace ecu::koru::tap {

enum class System : uint8_t { gps, sbas, glonass, galileo, beidou, qzss, navic, unknown };

/// Returns the system's name: "GPS", "Galileo"; "?" if it is unknown.
[[nodiscard]] std::string_view name_of(System system);

struct Satellite {
  System system = System::unknown;
  int number = 0;  ///< as in NMEA 4.10: Galileo and BeiDou from 1, SBAS from 33, GLONASS from 65
  std::optional<int> elevation_deg{};
  std::optional<int> azimuth_deg{};
  std::optional<int> cn0_dbhz{};  ///< of the strongest signal; empty if it is not tracked
  bool used = false;              ///< in the solution

  bool operator==(const Satellite&) const = default;
};

struct Sky {
  std::vector<Satellite> satellites;  ///< by system, then number; also those that only a GSA names
  bool has_view = false;              ///< there was a GSV; without one only the used satellites are known
  std::optional<double> pdop;
};

/// Returns a dilution of precision; empty if it says that it is not known, or cannot be one.
[[nodiscard]] std::optional<double> known_dop(double value);

/// Skips sentences of other types, and those that are malformed or have a wrong checksum. Numbers of NMEA 4.0
/// (Galileo from 301, BeiDou from 401) become those of 4.10. At most 200 satellites are kept.
[[nodiscard]] Sky read_sky(const pb::GnssData& fix);

}  // namespace ecu::koru::tap
