#include "sim/gnss/Route.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace ecu::koru::sim {
namespace {

constexpr double EARTH_RADIUS_M = 6'371'008.8;
constexpr double DEGREE = std::numbers::pi / 180.0;
constexpr double STANDING_MS = 0.1;  // below this speed a receiver knows no course
constexpr double SAME_PLACE_M = 1e-3;
// Limits of a leg, which reveal a mistyped point.
constexpr double MAX_SPEED_MS = 500.0;
constexpr double MAX_LEG_M = 10'000'000.0;

struct Vector {
  double x, y, z;
};

Vector operator*(double factor, const Vector& v) {
  return {factor * v.x, factor * v.y, factor * v.z};
}
Vector operator+(const Vector& a, const Vector& b) {
  return {a.x + b.x, a.y + b.y, a.z + b.z};
}
double dot(const Vector& a, const Vector& b) {
  return a.x * b.x + a.y * b.y + a.z * b.z;
}

Vector unit_vector(const RoutePoint& p) {
  const double phi = p.latitude_deg * DEGREE;
  const double lambda = p.longitude_deg * DEGREE;
  return {std::cos(phi) * std::cos(lambda), std::cos(phi) * std::sin(lambda), std::sin(phi)};
}

/// Returns the course of a movement in that direction at the unit vector `at`. The vertical part is ignored.
double course_of(const Vector& at, const Vector& direction) {
  const double lambda = std::atan2(at.y, at.x);
  const Vector east{-std::sin(lambda), std::cos(lambda), 0.0};
  const Vector north{-at.z * std::cos(lambda), -at.z * std::sin(lambda), std::hypot(at.x, at.y)};
  const double course = std::atan2(dot(direction, east), dot(direction, north)) / DEGREE;
  return course < 0 ? course + 360.0 : course;
}

/// Returns the point at `fraction` of the great circle from `from` to `to`, and the course there.
RouteState on_great_circle(const RoutePoint& from, const RoutePoint& to, double length_m, double fraction) {
  const double angle = length_m / EARTH_RADIUS_M;
  const double behind = fraction * angle;
  const double ahead = angle - behind;
  const Vector a = unit_vector(from);
  const Vector b = unit_vector(to);
  const Vector at = 1.0 / std::sin(angle) * (std::sin(ahead) * a + std::sin(behind) * b);
  const Vector chord = b + -1.0 * a;  // its horizontal part follows the arc at every point
  const double altitude = std::lerp(from.altitude_m, to.altitude_m, fraction);
  return {{std::atan2(at.z, std::hypot(at.x, at.y)) / DEGREE, std::atan2(at.y, at.x) / DEGREE, altitude},
          0.0,
          course_of(at, chord)};
}

const RoutePoint& checked(const RoutePoint& p) {
  if (!(std::abs(p.latitude_deg) <= 90.0))
    throw std::invalid_argument("the latitude is not within -90 to 90");
  if (!(std::abs(p.longitude_deg) <= 180.0))
    throw std::invalid_argument("the longitude is not within -180 to 180");
  if (!(p.altitude_m >= -1000.0 && p.altitude_m <= 20'000.0))
    throw std::invalid_argument("the altitude is not within -1000 to 20000 m");
  return p;
}

/// Returns the distance of two points on the great circle.
double distance_m(const RoutePoint& a, const RoutePoint& b) {
  const double half_phi = std::sin((b.latitude_deg - a.latitude_deg) * DEGREE / 2);
  const double half_lambda = std::sin((b.longitude_deg - a.longitude_deg) * DEGREE / 2);
  const double h = half_phi * half_phi + std::cos(a.latitude_deg * DEGREE) *
                                             std::cos(b.latitude_deg * DEGREE) * half_lambda * half_lambda;
  return 2 * EARTH_RADIUS_M * std::asin(std::sqrt(std::min(h, 1.0)));
}

}  // namespace

Route::Route(const RoutePoint& start) : m_start(checked(start)), m_end(start) {}

void Route::drive(const RoutePoint& to, double start_speed_ms, double end_speed_ms) {
  const double length = distance_m(m_end, checked(to));
  if (!(start_speed_ms >= 0 && end_speed_ms >= 0)) throw std::invalid_argument("the speed is negative");
  if (length < SAME_PLACE_M) return;
  const double sum = start_speed_ms + end_speed_ms;
  if (sum <= 0) throw std::invalid_argument("no speed, but a way to go");
  if (std::max(start_speed_ms, end_speed_ms) > MAX_SPEED_MS)
    throw std::invalid_argument("the speed is above 1800 km/h");
  const double duration = 2 * length / sum;
  add(to, length, duration, start_speed_ms, (end_speed_ms - start_speed_ms) / duration);
}

void Route::drive_in(const RoutePoint& to, double seconds) {
  if (!(seconds > 0)) throw std::invalid_argument("the time does not advance");
  const double length = distance_m(m_end, checked(to));
  if (length < SAME_PLACE_M) return add(m_end, 0.0, seconds, 0.0, 0.0);
  if (length / seconds > MAX_SPEED_MS)
    throw std::invalid_argument("the way from the point before needs more than 1800 km/h");
  add(to, length, seconds, length / seconds, 0.0);
}

void Route::close() {
  const double duration = duration_s();
  if (duration <= 0) return;
  if (const double speed = m_length_m / duration; speed > 0) drive(m_start, speed, speed);
}

void Route::add(const RoutePoint& to, double length_m, double duration_s, double speed_ms,
                double acceleration_ms2) {
  if (length_m > MAX_LEG_M) throw std::invalid_argument("more than 10000 km from the point before");
  m_legs.push_back({m_end, to, length_m, this->duration_s(), duration_s, speed_ms, acceleration_ms2});
  m_end = to;
  m_length_m += length_m;
}

double Route::duration_s() const {
  return m_legs.empty() ? 0.0 : m_legs.back().start_s + m_legs.back().duration_s;
}

RouteState Route::at(double seconds) const {
  if (m_legs.empty()) return {m_start, 0.0, std::nullopt};
  double t = std::fmod(seconds, duration_s());
  if (t < 0) t += duration_s();
  const auto behind = std::upper_bound(m_legs.begin(), m_legs.end(), t,
                                       [](double value, const Leg& leg) { return value < leg.start_s; });
  const Leg& leg = *(behind - 1);
  if (leg.length_m <= 0) return {leg.from, 0.0, std::nullopt};
  t -= leg.start_s;
  const double way = leg.start_speed_ms * t + leg.acceleration_ms2 * t * t / 2;
  RouteState state =
      on_great_circle(leg.from, leg.to, leg.length_m, std::clamp(way / leg.length_m, 0.0, 1.0));
  state.speed_ms = std::max(0.0, leg.start_speed_ms + leg.acceleration_ms2 * t);
  if (state.speed_ms < STANDING_MS) state.course_deg.reset();
  return state;
}

}  // namespace ecu::koru::sim
