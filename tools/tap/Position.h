#pragma once

namespace ecu::koru::tap {

struct Position {
  double latitude = 0;   ///< degrees, north positive
  double longitude = 0;  ///< degrees, east positive
};

}  // namespace ecu::koru::tap
