#include "nmea/UtcCalendar.h"

#include <string>

namespace ecu::koru::gpspub {

namespace {

constexpr int64_t S_PER_DAY = 86400;
constexpr int DAYS_PER_WEEK = 7;
constexpr int64_t EPOCH_WEEK_DAY = 4;  // 1970-01-01 was a Thursday
constexpr int EPOCH_YEAR = 70;         // as tm_year counts

/// Returns the days from 1970-01-01 to a day of the proleptic Gregorian calendar; month 1 to 12, any day. The
/// year is counted from March, so that the leap day is its last.
constexpr int64_t daysSinceEpoch(int64_t year, int64_t month, int64_t day) {
  year -= month <= 2 ? 1 : 0;
  const int64_t era = (year >= 0 ? year : year - 399) / 400;
  const int64_t year_of_era = year - era * 400;
  const int64_t month_from_march = (month + 9) % 12;
  const int64_t day_of_year = (153 * month_from_march + 2) / 5 + day - 1;
  const int64_t day_of_era = year_of_era * 365 + year_of_era / 4 - year_of_era / 100 + day_of_year;
  return era * 146097 + day_of_era - 719468;
}
static_assert(daysSinceEpoch(1970, 1, 1) == 0 && daysSinceEpoch(2000, 3, 1) == 11017);

/// Returns the value of two digits, or -1 if they are not digits.
constexpr int twoDigits(std::string_view text, size_t at) {
  const int tens = text[at] - '0';
  const int units = text[at + 1] - '0';
  return tens >= 0 && tens <= 9 && units >= 0 && units <= 9 ? tens * 10 + units : -1;
}

constexpr bool within(int value, int min, int max) {
  return value >= min && value <= max;
}

/// Parses the usual case, six digits each, without a copy.
bool parseSixDigits(std::string_view date, std::string_view time, std::tm& out) {
  std::tm utc{};
  utc.tm_mday = twoDigits(date, 0);
  const int month = twoDigits(date, 2);
  const int year = twoDigits(date, 4);
  utc.tm_hour = twoDigits(time, 0);
  utc.tm_min = twoDigits(time, 2);
  utc.tm_sec = twoDigits(time, 4);
  utc.tm_mon = month - 1;
  if (year < 0 || !isCalendarTime(utc)) return false;
  utc.tm_year = year >= 69 ? year : year + 100;
  if (utc.tm_year < EPOCH_YEAR) return false;
  const int64_t full_year = utc.tm_year + 1900;
  const int64_t days = daysSinceEpoch(full_year, month, utc.tm_mday);
  utc.tm_wday = static_cast<int>((days + EPOCH_WEEK_DAY) % DAYS_PER_WEEK);
  utc.tm_yday = static_cast<int>(days - daysSinceEpoch(full_year, 1, 1));
  out = utc;
  return true;
}

}  // namespace

bool isCalendarTime(const std::tm& time) {
  // Second 60 is a leap second; 61 is accepted because strptime accepts it.
  return within(time.tm_mday, 1, 31) && within(time.tm_mon, 0, 11) && within(time.tm_hour, 0, 23) &&
         within(time.tm_min, 0, 59) && within(time.tm_sec, 0, 61);
}

bool parseDateTime(std::string_view date, std::string_view time, std::tm& out) {
  if (date.size() == 6 && time.size() == 6) return parseSixDigits(date, time, out);
  std::string text(date);
  text.append(":").append(time);
  std::tm utc{};
  // A time that ends early ("1235") still gives the fields before its end.
  (void)strptime(text.c_str(), "%d%m%y:%H%M%S", &utc);
  if (utc.tm_mday == 0 || utc.tm_year < EPOCH_YEAR) return false;
  out = utc;
  return true;
}

int64_t secondsSinceEpoch(const std::tm& utc) {
  const int64_t days = daysSinceEpoch(int64_t{utc.tm_year} + 1900, utc.tm_mon + 1, utc.tm_mday);
  return days * S_PER_DAY + int64_t{utc.tm_hour} * 3600 + int64_t{utc.tm_min} * 60 + utc.tm_sec;
}

}  // namespace ecu::koru::gpspub
