#pragma once

#include <cstdint>
#include <ctime>
#include <string_view>

namespace ecu::koru::gpspub {

/// "ddmmyy" and "hhmmss" as strptime reads "%d%m%y:%H%M%S" (years 70-99 are 1970-1999, 00-68 are 2000-2068),
/// week day and day of year included. If the time does not have six digits, the fields that strptime read
/// before it gave up count. False, `out` unchanged, if this is not a date, or one of 1969.
[[nodiscard]] bool parseDateTime(std::string_view date, std::string_view time, std::tm& out);

/// Each field is in its own range (a month of 31 days, a minute of 62 seconds at most).
[[nodiscard]] bool isCalendarTime(const std::tm& time);

/// UTC seconds since 1970-01-01 of a broken-down UTC time, whatever the process's time zone. A day beyond the
/// end of its month counts on into the next.
[[nodiscard]] int64_t secondsSinceEpoch(const std::tm& utc);

}  // namespace ecu::koru::gpspub
