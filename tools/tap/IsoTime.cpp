#include "tools/tap/IsoTime.h"

#include <chrono>
#include <cstdio>

namespace ecu::koru::tap {

std::string iso_time(int64_t us_since_1970, int digits) {
  using namespace std::chrono;
  const sys_time<microseconds> time{microseconds(us_since_1970)};
  const auto day = floor<days>(time);
  const year_month_day date(day);
  const hh_mm_ss clock(time - day);
  char out[64];
  const int length =
      std::snprintf(out, sizeof out, "%04d-%02u-%02uT%02d:%02d:%02d.%06d", static_cast<int>(date.year()),
                    static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                    static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
                    static_cast<int>(clock.seconds().count()), static_cast<int>(clock.subseconds().count()));
  return std::string(out, static_cast<size_t>(length - (6 - digits))) + "Z";
}

}  // namespace ecu::koru::tap
