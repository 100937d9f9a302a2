#include "sim/gnss/Utc.h"

#include <chrono>

namespace ecu::koru::sim {
namespace {

constexpr int64_t DAY_US = 86'400 * SECOND_US;

/// Reads fields from the front of a text. `ok` stays false after the first one that does not fit.
struct Reader {
  std::string_view rest;
  bool ok = true;

  unsigned digits(size_t count) {
    unsigned value = 0;
    for (size_t i = 0; i < count; ++i) {
      if (i >= rest.size() || rest[i] < '0' || rest[i] > '9') return ok = false, 0U;
      value = value * 10 + static_cast<unsigned>(rest[i] - '0');
    }
    rest.remove_prefix(count);
    return value;
  }
  bool take(std::string_view any_of) {
    if (rest.empty() || any_of.find(rest.front()) == std::string_view::npos) return false;
    rest.remove_prefix(1);
    return true;
  }
  void expect(std::string_view any_of) { ok = take(any_of) && ok; }
};

int64_t read_fraction_us(Reader& in) {
  int64_t value = 0;
  int64_t unit = 100'000;
  if (!in.take(".,")) return 0;
  do {
    value += unit * in.digits(1);
    unit /= 10;
  } while (in.ok && !in.rest.empty() && in.rest.front() >= '0' && in.rest.front() <= '9');
  return value;
}

int64_t read_offset_us(Reader& in) {
  if (in.rest.empty() || in.take("Z")) return 0;
  const bool west = in.rest.front() == '-';
  in.expect("+-");
  const unsigned hours = in.digits(2);
  in.expect(":");
  const unsigned minutes = in.digits(2);
  if (hours > 14 || minutes > 59) in.ok = false;
  const int64_t offset = static_cast<int64_t>(hours * 3600 + minutes * 60) * SECOND_US;
  return west ? -offset : offset;
}

}  // namespace

CivilTime civil_time(int64_t utc_us) {
  const std::chrono::sys_time<std::chrono::microseconds> time{std::chrono::microseconds{utc_us}};
  const auto day = std::chrono::floor<std::chrono::days>(time);
  const std::chrono::year_month_day date{day};
  const std::chrono::hh_mm_ss clock{time - day};
  return {static_cast<int>(date.year()),
          static_cast<unsigned>(date.month()),
          static_cast<unsigned>(date.day()),
          static_cast<unsigned>(clock.hours().count()),
          static_cast<unsigned>(clock.minutes().count()),
          static_cast<unsigned>(clock.seconds().count()),
          static_cast<unsigned>(clock.subseconds().count())};
}

std::optional<int64_t> parse_iso8601(std::string_view text) {
  Reader in{text};
  const std::chrono::year year{static_cast<int>(in.digits(4))};
  in.expect("-");
  const std::chrono::month month{in.digits(2)};
  in.expect("-");
  const std::chrono::year_month_day date{year, month, std::chrono::day{in.digits(2)}};
  in.expect("T ");
  const unsigned hour = in.digits(2);
  in.expect(":");
  const unsigned minute = in.digits(2);
  in.expect(":");
  const unsigned second = in.digits(2);
  const int64_t fraction_us = read_fraction_us(in);
  const int64_t offset_us = read_offset_us(in);
  if (!in.ok || !in.rest.empty() || !date.ok() || hour > 23 || minute > 59 || second > 59)
    return std::nullopt;
  const int64_t of_day = static_cast<int64_t>(hour * 3600 + minute * 60 + second) * SECOND_US + fraction_us;
  return std::chrono::sys_days{date}.time_since_epoch().count() * DAY_US + of_day - offset_us;
}

}  // namespace ecu::koru::sim
