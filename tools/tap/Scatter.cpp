#include "tools/tap/Scatter.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "tools/tap/Histogram.h"

namespace ecu::koru::tap {

namespace {

constexpr double EQUATOR_RADIUS_M = 6'378'137;       // WGS 84
constexpr double ECCENTRICITY_2 = 6.69437999014e-3;  // WGS 84, first eccentricity squared
constexpr double RADIANS = std::numbers::pi / 180;

/// Returns an angle as -180 up to 180 degrees.
double turned(double degrees) {
  return std::remainder(degrees, 360.0);
}

}  // namespace

double distance_m(const Position& from, const Position& to) {
  const double sine = std::sin(from.latitude * RADIANS);
  const double w2 = 1 - ECCENTRICITY_2 * sine * sine;
  const double normal_m = EQUATOR_RADIUS_M / std::sqrt(w2);
  const double meridian_m = normal_m * (1 - ECCENTRICITY_2) / w2;
  const double north_m = (to.latitude - from.latitude) * RADIANS * meridian_m;
  const double east_m =
      turned(to.longitude - from.longitude) * RADIANS * normal_m * std::cos(from.latitude * RADIANS);
  return std::hypot(north_m, east_m);
}

void Scatter::add(const Position& position) {
  if (m_count++ == 0) m_first = position;
  m_north += position.latitude - m_first.latitude;
  m_east += turned(position.longitude - m_first.longitude);
  if (m_sample.size() < MAX_SAMPLE) {
    m_sample.push_back(position);
    return;
  }
  // Every position so far has the same chance to be in the sample.
  const uint64_t place = std::uniform_int_distribution<uint64_t>(0, m_count - 1)(m_random);
  if (place < MAX_SAMPLE) m_sample[static_cast<size_t>(place)] = position;
}

std::optional<Position> Scatter::mean() const {
  if (m_count == 0) return std::nullopt;
  const auto count = static_cast<double>(m_count);
  return Position{m_first.latitude + m_north / count, turned(m_first.longitude + m_east / count)};
}

std::optional<double> Scatter::radius_m(const Position& point, double share) const {
  if (m_sample.empty()) return std::nullopt;
  std::vector<double> distances;
  distances.reserve(m_sample.size());
  for (const auto& position : m_sample) distances.push_back(distance_m(point, position));
  const auto rank = static_cast<std::ptrdiff_t>(nearest_rank(distances.size(), share)) - 1;
  std::nth_element(distances.begin(), distances.begin() + rank, distances.end());
  return distances[static_cast<size_t>(rank)];
}

}  // namespace ecu::koru::tap
