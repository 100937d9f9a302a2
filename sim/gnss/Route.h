#pragma once

#include <optional>
#include <stdexcept>
#include <vector>

namespace ecu::koru::sim {

/// A place: degrees, north and east positive, and metres above mean sea level.
struct RoutePoint {
  double latitude_deg, longitude_deg, altitude_m;
};

/// Where the vehicle is and how it moves. The course is empty at a standstill.
struct RouteState {
  RoutePoint position;
  double speed_ms;
  std::optional<double> course_deg;
};

/// A track that is driven again and again. Every leg follows the great circle (sphere of radius 6371008.8 m)
/// with constant acceleration, so speed and course always match the change of the position. The altitude is
/// linear in the distance.
class Route {
 public:
  /// Stands at `start` until legs are added. Like the functions below, it throws std::invalid_argument if a
  /// point is outside these limits: latitude -90 to 90, longitude -180 to 180, altitude -1000 to 20000 m.
  explicit Route(const RoutePoint& start);

  /// Returns a closed drive of about 6 km and 7 minutes in hilly country, with straights, curves both ways
  /// and two stops.
  [[nodiscard]] static Route built_in();

  /// Drives to `to` at constant acceleration. Does nothing if the vehicle is there already. Throws if a speed
  /// is negative, if both are 0, or if the leg is too long or too fast.
  void drive(const RoutePoint& to, double start_speed_ms, double end_speed_ms);
  /// Drives to `to` in `seconds` at constant speed; stands still if it is there already. Also throws if
  /// `seconds` is not positive or the leg is too long or too fast.
  void drive_in(const RoutePoint& to, double seconds);
  /// Drives straight back to the start at the route's mean speed.
  void close();

  /// Returns the state `seconds` after the start. At its end the route begins again.
  [[nodiscard]] RouteState at(double seconds) const;
  [[nodiscard]] double duration_s() const;
  [[nodiscard]] double length_m() const { return m_length_m; }
  [[nodiscard]] const RoutePoint& end() const { return m_end; }

 private:
  struct Leg {
    RoutePoint from, to;
    double length_m, start_s, duration_s, start_speed_ms, acceleration_ms2;
  };
  void add(const RoutePoint& to, double length_m, double duration_s, double speed_ms,
           double acceleration_ms2);

  RoutePoint m_start, m_end;
  std::vector<Leg> m_legs;
  double m_length_m = 0;
};

}  // namespace ecu::koru::sim
