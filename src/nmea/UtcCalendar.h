#pragma once

#include <cstdint>
#include <ctime>
#include <string_view>

namespace ecu::koru::gpspub {

/// Parses "ddmmyy" and "hhmmss" as strptime reads "%d%m%y:%H%M%S" (years 70-99 are 1970-1999, 00-68 are
/// 2000-2068), including week day and day of year. If the time does not have six digits, the fields before
/// the first unreadable one are used. Returns false and leaves `out` unchanged if this is not a date, or is a
/// date in 1969.
[[nodiscard]] bool parseDateTime(std::string_view date, std::string_view time, std::tm& out);

/// Returns true if each field is in its own range (at most 31 days in a month, 62 seconds in a minute).
[[nodiscard]] bool isCalendarTime(const std::tm& time);

/// Returns the seconds from 1970-01-01 to a broken-down UTC time, whatever the process's time zone. A day
/// beyond the end of its month counts on into the next.
[[nodiscard]] int64_t secondsSinceEpoch(const std::tm& utc);

}  // namespace ecu::koru::gpspub
