#pragma once

#include <optional>
#include <stdexcept>
#include <vector>

namespace ecu::koru::sim {

/// A place: degrees, north and east positive, and metres above mean sea level.
struct RoutePoint {
  double latitude_deg, longitude_deg, altitude_m;
};

/// Where the vehicle is and how it moves; the course is nothing when it stands.
struct RouteState {
  RoutePoint position;
  double speed_ms;
  std::optional<double> course_deg;
};

/// A track that is driven round and round. Every leg follows the great circle (sphere of 6371008.8 m) with
/// constant acceleration, so speed and course are the derivatives of the position at any moment. The altitude
/// goes linearly with the way.
class Route {
 public:
  /// What a leg may be at most, so that a mistyped point is found: m/s and m.
  static constexpr double max_speed_ms = 500.0;
  static constexpr double max_leg_m = 10'000'000.0;

  /// Stands at `start` until legs are added. Throws std::invalid_argument, as all below, when a point is not
  /// on earth: latitude -90 to 90, longitude -180 to 180, altitude -1000 to 20000.
  explicit Route(const RoutePoint& start);

  /// A closed drive of about 6 km and 7 minutes in hilly country, with straights, curves both ways and two
  /// stops.
  [[nodiscard]] static Route built_in();

  /// Drives to `to`, changing the speed evenly. Throws when both speeds are 0 and there is a way to go, and
  /// when the leg is too long or too fast. No way to go takes no time.
  void drive(const RoutePoint& to, double start_speed_ms, double end_speed_ms);
  /// Drives to `to` in `seconds` at constant speed; stands when `to` is where it is. Throws when seconds is
  /// not positive.
  void drive_in(const RoutePoint& to, double seconds);
  /// Drives straight back to the start at the route's mean speed.
  void close();

  /// The state `seconds` after the start; a route that has ended begins again.
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

/// The way between two points on the great circle, m.
[[nodiscard]] double distance_m(const RoutePoint& a, const RoutePoint& b);

}  // namespace ecu::koru::sim
