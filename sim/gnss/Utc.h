#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace ecu::koru::sim {

inline constexpr int64_t SECOND_US = 1'000'000;

/// A UTC calendar time without leap seconds.
struct CivilTime {
  int year;
  unsigned month, day, hour, minute, second, microsecond;
};

/// `utc_us` is microseconds since 1970.
[[nodiscard]] CivilTime civil_time(int64_t utc_us);

/// Parses "2026-11-21T10:15:30", optionally with a fraction of the second and with "Z" or "+hh:mm" (default:
/// UTC). Returns microseconds since 1970; empty if the text has another form or the date does not exist.
[[nodiscard]] std::optional<int64_t> parse_iso8601(std::string_view text);

}  // namespace ecu::koru::sim
