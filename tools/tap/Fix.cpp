#include "tools/tap/Fix.h"

#include <cmath>

#include "platform/base/Numbers.h"
#include "tools/tap/Fields.h"
#include "tools/tap/IsoTime.h"
#include "tools/tap/Sentences.h"
#include "tools/tap/Sky.h"

namespace ecu::koru::tap {

namespace {

std::optional<double> number(std::string_view text) {
  const auto value = to_number<double>(text);
  return value && std::isfinite(*value) ? value : std::nullopt;
}

std::optional<double> finite(bool present, float value) {
  return present && std::isfinite(value) ? std::optional<double>(value) : std::nullopt;
}

/// Reads "4818.30056","N". `degree_digits`: before the minutes.
std::optional<double> degrees(std::string_view text, std::string_view side, size_t degree_digits) {
  if (text.size() < degree_digits + 2 || (side != "N" && side != "S" && side != "E" && side != "W"))
    return std::nullopt;
  const auto whole = number(text.substr(0, degree_digits));
  const auto minutes = number(text.substr(degree_digits));
  if (!whole || !minutes) return std::nullopt;
  const double value = *whole + *minutes / 60;
  return side == "S" || side == "W" ? -value : value;
}

/// Returns false for NaN too.
bool is_on_earth(const Position& position) {
  return std::fabs(position.latitude) <= 90 && std::fabs(position.longitude) <= 180;
}

/// Returns the position of the GGA sentence; empty if there is none.
std::optional<Position> position_of_gga(const pb::GnssData& data) {
  const auto gga = find_sentence(data, "GGA");
  if (gga.size() < 6) return std::nullopt;
  const auto latitude = degrees(gga[2], gga[3], 2);
  const auto longitude = degrees(gga[4], gga[5], 3);
  if (!latitude || !longitude || !is_on_earth({*latitude, *longitude})) return std::nullopt;
  return Position{*latitude, *longitude};
}

std::string_view kind(const pb::GnssData& data) {
  constexpr std::string_view BY_QUALITY[] = {"", "", "dgps", "", "dgps", "dgps"};  // 4 and 5: RTK
  constexpr std::string_view BY_DIMENSIONS[] = {"", "", "2d", "3d"};
  constexpr int ESTIMATED = 6;
  const auto quality = static_cast<size_t>(data.quality());
  if (quality < std::size(BY_QUALITY) && !BY_QUALITY[quality].empty()) return BY_QUALITY[quality];
  const bool known = data.quality() < ESTIMATED && data.fix() < std::size(BY_DIMENSIONS);
  return known ? BY_DIMENSIONS[data.fix()] : std::string_view();
}

bool is_valid_and_dated(const pb::GnssData& data) {
  return data.status() == VALID_STATUS && data.has_utc_time_us() &&
         data.utc_time_us() < uint64_t{YEAR_10000_US};
}

template <std::optional<double> Fix::*MEMBER, int DECIMALS>
std::string decimal_text(const Fix& fix) {
  const auto& value = fix.*MEMBER;
  return value ? decimal(*value, DECIMALS) : std::string();
}

template <std::optional<int> Fix::*MEMBER>
std::string whole_text(const Fix& fix) {
  const auto& value = fix.*MEMBER;
  return value ? std::to_string(*value) : std::string();
}

constexpr Property PROPERTIES[] = {
    {"altitude_m", decimal_text<&Fix::altitude_m, 1>},
    {"speed_kmh", decimal_text<&Fix::speed_kmh, 2>},
    {"course_deg", decimal_text<&Fix::course_deg, 2>},
    {"fix", [](const Fix& fix) { return std::string(fix.kind); }},
    {"quality", whole_text<&Fix::quality>},
    {"satellites", whole_text<&Fix::satellites>},
    {"accuracy_m", decimal_text<&Fix::accuracy_m, 1>},
    {"hdop", decimal_text<&Fix::hdop, 2>},
    {"vdop", decimal_text<&Fix::vdop, 2>},
    {"pdop", decimal_text<&Fix::pdop, 2>},
};

}  // namespace

std::optional<Position> exact_position(const pb::GnssData& data) {
  constexpr double SAME_DEG = 1e-4;  // several times the step of a float near 180
  const Position sent = {data.latitude(), data.longitude()};
  if (!data.has_latitude() || !data.has_longitude() || !is_on_earth(sent)) return std::nullopt;
  const auto exact = position_of_gga(data);
  const bool same = exact && std::fabs(exact->latitude - sent.latitude) < SAME_DEG &&
                    std::fabs(exact->longitude - sent.longitude) < SAME_DEG;
  return same ? *exact : sent;
}

std::optional<Fix> valid_fix(const pb::GnssData& data) {
  const auto position = exact_position(data);
  if (!position || !is_valid_and_dated(data)) return std::nullopt;
  constexpr double LAST_EAST_DEG = 180 - 5e-8;  // from here on it would be written as 180
  return Fix{.utc_us = static_cast<int64_t>(data.utc_time_us()),
             .latitude_deg = position->latitude,
             .longitude_deg = position->longitude < LAST_EAST_DEG ? position->longitude : -180,
             .altitude_m = finite(data.has_altitude(), data.altitude()),
             .speed_kmh = finite(data.has_speed(), data.speed()),
             .course_deg = finite(data.has_heading(), data.heading()),
             .accuracy_m = finite(data.has_accuracy(), data.accuracy()),
             .hdop = data.has_hdop() ? known_dop(data.hdop()) : std::nullopt,
             .vdop = data.has_vdop() ? known_dop(data.vdop()) : std::nullopt,
             .pdop = read_sky(data).pdop,
             .satellites = data.has_num_satellites() && data.num_satellites() >= 0
                               ? std::optional<int>(data.num_satellites())
                               : std::nullopt,
             .quality = data.has_quality() ? std::optional<int>(data.quality()) : std::nullopt,
             .kind = kind(data)};
}

std::span<const Property> properties() {
  return PROPERTIES;
}

unsigned Segments::number(const Fix& fix, uint64_t boot_ns) {
  const bool went_back = boot_ns < m_boot_ns || fix.utc_us < m_utc_us;
  if (m_number == 0 || went_back || boot_ns - m_boot_ns > GAP_NS) ++m_number;
  m_boot_ns = boot_ns;
  m_utc_us = fix.utc_us;
  return m_number;
}

}  // namespace ecu::koru::tap
