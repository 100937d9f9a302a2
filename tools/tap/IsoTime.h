#pragma once

#include <cstdint>
#include <string>

namespace ecu::koru::tap {

inline constexpr int64_t YEAR_10000_US = 253'402'300'800'000'000;  ///< the first time with a longer year

/// Returns "2026-11-21T10:15:30.123456Z" with 1 to 6 decimals of the second.
[[nodiscard]] std::string iso_time(int64_t us_since_1970, int digits);

}  // namespace ecu::koru::tap
