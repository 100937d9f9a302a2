#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <random>
#include <vector>

#include "tools/tap/Position.h"

namespace ecu::koru::tap {

/// Returns the distance in metres on the plane that touches the ellipsoid (WGS 84) at `from`: exact to 0.1 %
/// up to some 10 km.
[[nodiscard]] double distance_m(const Position& from, const Position& to);

/// How far positions are from a point: the radii of the circles around it that hold 50 % and 95 % of them
/// (CEP50, CEP95). Keeps the first 8192 positions, later a random sample of that size of all of them (128
/// KiB). The circle that then is shown for 50 % holds 49 to 51 % of all positions, that for 95 % 94.5 to 95.5
/// % (two standard deviations). For one thread.
class Scatter {
 public:
  static constexpr size_t MAX_SAMPLE = 8192;

  /// The position must be on earth.
  void add(const Position& position);

  [[nodiscard]] uint64_t count() const { return m_count; }
  /// Returns the mean of all positions, of the sample or not, also across the 180th meridian; empty without
  /// positions.
  [[nodiscard]] std::optional<Position> mean() const;
  /// Returns the radius in metres around `point` that holds this share of the positions, 0 < share <= 1;
  /// empty without positions.
  [[nodiscard]] std::optional<double> radius_m(const Position& point, double share) const;

 private:
  uint64_t m_count = 0;
  double m_north = 0;  // sums of the differences to the first position, degrees
  double m_east = 0;
  Position m_first;
  std::vector<Position> m_sample;
  std::minstd_rand m_random;  // always from the same start, so that a recording gives the same figures again
};

}  // namespace ecu::koru::tap
