#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "sim/gnss/Antenna.h"
#include "sim/gnss/Faults.h"
#include "sim/gnss/Line.h"
#include "sim/gnss/Route.h"
#include "sim/gnss/Sentences.h"

namespace ecu::koru::sim {

class Recording;

struct ReceiverOptions {
  /// false: the settings follow rate_hz, baud and sentences, with RMC, GGA, GSA and GST, as if they had been
  /// saved. true: factory settings at initial_baud; rate_hz and baud are ignored.
  bool power_up_defaults = false;
  unsigned initial_baud = 9600;
  int rate_hz = 1;  ///< epochs a second, 1 to 10
  unsigned baud = 38400;
  int64_t start_us = 0;                          ///< caller's clock at power-on, us
  int64_t utc_start_us = 1'767'225'600'000'000;  ///< UTC at power-on, us since 1970; default 2026-01-01
  int64_t output_delay_us = 80'000;              ///< from an epoch to the first byte of its burst
  bool no_fix = false;
  Route route = Route::built_in();  ///< the vehicle is at its start at power-on
  SentenceOptions sentences;
  FaultOptions faults;

  /// The host is on the SPI bus and clocks every byte, see Receiver::transfer(). baud and
  /// initial_baud are ignored.
  bool spi = false;
  /// txReady of the SPI port in the factory settings: bit 0 on, bit 1 active low, bits 2 to 6 the pin, from
  /// bit 7 the threshold in units of 8 bytes.
  uint16_t tx_ready = 0x009B;

  AntennaState antenna = AntennaState::ok;
  bool antenna_supply = true;  ///< the settings at power-up switch it on; without it there is no fix
  /// The unit's circuit detects an open antenna with the opposite level. While supply and open-circuit
  /// detection are on, a good antenna is reported as 4 (open) and an open one as 2 (OK).
  bool antenna_inverted = true;
  /// The systems that the receiver supports. It uses sentences.constellations until CFG-GNSS changes that.
  std::vector<Constellation> supported{ALL_CONSTELLATIONS.begin(), ALL_CONSTELLATIONS.end()};
  uint8_t simultaneous = 3;  ///< the most systems in use at once

  /// Plays this instead of driving, with the first epoch at power-on. Only baud, start_us, the replay options
  /// and the faults of sentences apply. Commands are ignored.
  std::shared_ptr<const Recording> recording;
  double replay_speed = 1;
  bool replay_loop = false;

  [[nodiscard]] unsigned power_up_baud() const {
    if (spi) return Line::AT_ONCE;
    return power_up_defaults && !recording ? initial_baud : baud;
  }
};

}  // namespace ecu::koru::sim
