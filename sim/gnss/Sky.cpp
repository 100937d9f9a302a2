#include "sim/gnss/Sky.h"

#include <cmath>
#include <numbers>

#include "sim/gnss/Utc.h"

namespace ecu::koru::sim {
namespace {

struct Orbits {
  ConstellationNames names;
  int first_number, in_view, step;  // satellite numbers: the first, how many are in view, step
};

constexpr std::array<Orbits, 4> ORBITS{{
    {{"gps", "GP", 1, 0, 0x01}, 2, 10, 3},
    {{"glonass", "GL", 2, 6, 0x02}, 66, 8, 3},
    {{"galileo", "GA", 3, 2, 0x08}, 301, 7, 4},
    {{"beidou", "GB", 4, 3, 0x04}, 406, 7, 4},
}};

constexpr int MASK_DEG = 15;  // lower satellites are in view, but not used

const Orbits& orbits_of(Constellation constellation) {
  return ORBITS.at(static_cast<size_t>(constellation));
}

double wave(int64_t utc_us, int64_t period_s, double mean, double amplitude) {
  const auto phase =
      static_cast<double>(utc_us % (period_s * SECOND_US)) / static_cast<double>(period_s * SECOND_US);
  return mean + amplitude * std::sin(2 * std::numbers::pi * phase);
}

}  // namespace

const ConstellationNames& names_of(Constellation constellation) {
  return orbits_of(constellation).names;
}

std::vector<Satellite> satellites_in_view(Constellation constellation, int64_t utc_us) {
  const Orbits& orbit = orbits_of(constellation);
  const auto minutes = static_cast<int>(utc_us / (60 * SECOND_US) % (int64_t{75} * 360));
  std::vector<Satellite> seen;
  for (int i = 0; i < orbit.in_view; ++i) {
    const int elevation = 8 + (i * 29 + minutes) % 75;
    const int azimuth = (i * 67 + minutes / 2) % 360;
    seen.push_back(
        {orbit.first_number + i * orbit.step, elevation, azimuth, 24 + elevation / 4, elevation >= MASK_DEG});
  }
  return seen;
}

void describe_quality(Fix& fix, const std::vector<Constellation>& constellations) {
  fix.satellites = 0;
  for (const Constellation constellation : constellations)
    for (const Satellite& satellite : satellites_in_view(constellation, fix.utc_us))
      fix.satellites += satellite.used;
  fix.hdop = wave(fix.utc_us, 600, 0.90, 0.15);
  fix.vdop = wave(fix.utc_us, 840, 1.40, 0.25);
  fix.pdop = std::hypot(fix.hdop, fix.vdop);
  fix.latitude_error_m = 1.9 * fix.hdop;
  fix.longitude_error_m = 1.6 * fix.hdop;
  fix.altitude_error_m = 2.2 * fix.vdop;
}

}  // namespace ecu::koru::sim
