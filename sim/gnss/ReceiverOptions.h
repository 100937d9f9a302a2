#pragma once

#include <array>
#include <cstdint>
#include <memory>

#include "sim/gnss/Faults.h"
#include "sim/gnss/Route.h"
#include "sim/gnss/Sentences.h"

namespace ecu::koru::sim {

class Recording;

/// The speeds that a receiver can have.
inline constexpr std::array<unsigned, 8> receiver_bauds{4800,  9600,   19200,  38400,
                                                        57600, 115200, 230400, 460800};

/// Everything that can be chosen about a receiver.
struct ReceiverOptions {
  int rate_hz = 1;  ///< epochs a second, 1 to 10
  unsigned baud = 38400;
  int64_t start_us = 0;                          ///< caller's clock at power-on
  int64_t utc_start_us = 1'767'225'600'000'000;  ///< UTC at power-on, since 1970; default 2026-01-01
  int64_t output_delay_us = 80'000;              ///< from an epoch to the first byte of its burst
  bool no_fix = false;
  Route route = Route::built_in();  ///< its start is where the vehicle is at power-on
  SentenceOptions sentences;
  FaultOptions faults;

  /// Plays this instead of driving: the first epoch at power-on. Only baud, start_us and faults hold beside
  /// it.
  std::shared_ptr<const Recording> recording;
  double replay_speed = 1;
  bool replay_loop = false;
};

}  // namespace ecu::koru::sim
