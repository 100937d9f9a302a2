#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "proto/nvxproto.pb.h"
#include "tools/tap/Position.h"

namespace ecu::koru::tap {

inline constexpr int32_t VALID_STATUS = 3;  ///< GnssData.status of a valid and dated position

/// A valid and dated position, as it goes into a track. An empty value is not available.
struct Fix {
  int64_t utc_us = 0;  ///< since 1970
  double latitude_deg = 0;
  double longitude_deg = 0;  ///< -180 to below 180
  std::optional<double> altitude_m = {};
  std::optional<double> speed_kmh = {};
  std::optional<double> course_deg = {};
  std::optional<double> accuracy_m = {};
  std::optional<double> hdop = {}, vdop = {}, pdop = {};
  std::optional<int> satellites = {};  ///< used in the solution
  std::optional<int> quality = {};     ///< of the GGA sentence
  std::string_view kind = {};  ///< "2d", "3d", "dgps" for a corrected one, or empty if it is not known
};

/// Returns the position of a message, whatever its status: the exact one of its GGA sentence, unless that is
/// another one, else the floats of the message (up to 1 m off). Empty if there is none or it is not on earth.
[[nodiscard]] std::optional<Position> exact_position(const pb::GnssData& data);

/// Returns the fix of a message; empty if it is not valid and dated, or if a number of it makes no sense.
/// The position is exact_position(); the PDOP comes from the sentences, as the message has none.
[[nodiscard]] std::optional<Fix> valid_fix(const pb::GnssData& data);

/// A named property of a fix, as text.
struct Property {
  std::string_view name;            ///< with the unit, such as "speed_kmh"
  std::string (*text)(const Fix&);  ///< empty if it is not available
};

/// Returns everything about a fix but time and position, in the order of the files.
[[nodiscard]] std::span<const Property> properties();

/// Numbers the stretches of a track that have no gap.
class Segments {
 public:
  /// A receiver has up to 10 epochs a second, and one lost for a moment under a bridge is no gap: the vehicle
  /// can be thought of as on the line between two fixes.
  static constexpr uint64_t GAP_NS = 5'000'000'000;

  /// Returns the number of the fix's segment, the first one being 1. A new one begins after a gap, and if
  /// time went back. `boot_ns`: arrival of the fix.
  unsigned number(const Fix& fix, uint64_t boot_ns);

 private:
  unsigned m_number = 0;
  uint64_t m_boot_ns = 0;
  int64_t m_utc_us = 0;
};

}  // namespace ecu::koru::tap
