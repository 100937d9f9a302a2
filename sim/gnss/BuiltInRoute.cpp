#include <algorithm>
#include <cmath>
#include <numbers>

#include "sim/gnss/Route.h"

namespace ecu::koru::sim {
namespace {

constexpr double DEGREE = std::numbers::pi / 180.0;

/// One piece of road: its length, its turn (positive to the right), the speed at its end, its climb, and how
/// long the vehicle stands at its end.
struct Piece {
  double length_m, turn_deg, end_speed_kmh, climb_m, stop_s;
};

/// Half of the drive. The turns add up to 180 degrees, so driving it twice, the second time with climbs
/// negated, ends exactly where it began.
constexpr Piece HALF_DRIVE[] = {
    {80, 0, 50, 0, 0},   {600, 0, 50, 8, 0},  {120, 0, 30, 0, 0},  {40, 70, 30, 0, 0},
    {150, 0, 80, 4, 0},  {900, 0, 80, 25, 0}, {250, 60, 80, 3, 0}, {250, -40, 80, -6, 0},
    {200, 0, 40, -2, 0}, {60, 90, 40, 0, 0},  {300, 0, 50, -5, 0}, {100, 0, 0, 0, 12},
};

constexpr RoutePoint START{48.305, 10.905, 480.0};

/// Draws the road in the plane that touches the earth at the start.
class Pen {
 public:
  void move(double length_m, double turn_deg, double climb_m) {
    const double heading = (m_heading_deg + turn_deg / 2) * DEGREE;
    m_east_m += length_m * std::sin(heading);
    m_north_m += length_m * std::cos(heading);
    m_heading_deg += turn_deg;
    m_up_m += climb_m;
  }
  [[nodiscard]] RoutePoint point() const {
    constexpr double METRES_PER_DEGREE = 6'371'008.8 * DEGREE;
    return {START.latitude_deg + m_north_m / METRES_PER_DEGREE,
            START.longitude_deg + m_east_m / METRES_PER_DEGREE / std::cos(START.latitude_deg * DEGREE),
            START.altitude_m + m_up_m};
  }

 private:
  double m_east_m = 0, m_north_m = 0, m_up_m = 0, m_heading_deg = 20;
};

double ms(double kmh) {
  return kmh / 3.6;
}

void drive_piece(Route& route, Pen& pen, const Piece& piece, double start_speed_kmh, double climb_m) {
  const int steps = std::max(1, static_cast<int>(std::abs(piece.turn_deg)));  // one a degree
  for (int i = 0; i < steps; ++i) {
    pen.move(piece.length_m / steps, piece.turn_deg / steps, climb_m / steps);
    // At constant acceleration, the square of the speed is linear in the distance.
    const auto speed = [&](int step) {
      const double from = std::pow(ms(start_speed_kmh), 2);
      return std::sqrt(from + (std::pow(ms(piece.end_speed_kmh), 2) - from) * step / steps);
    };
    route.drive(pen.point(), speed(i), speed(i + 1));
  }
  if (piece.stop_s > 0) route.drive_in(route.end(), piece.stop_s);
}

}  // namespace

Route Route::built_in() {
  Route route(START);
  Pen pen;
  for (const double uphill : {1.0, -1.0}) {
    double speed_kmh = 0;
    for (const Piece& piece : HALF_DRIVE) {
      drive_piece(route, pen, piece, speed_kmh, uphill * piece.climb_m);
      speed_kmh = piece.end_speed_kmh;
    }
  }
  return route;
}

}  // namespace ecu::koru::sim
