#pragma once

#include <cstdint>
#include <limits>
#include <string>
#include <string_view>

#include "nmea/GnssInfo.h"
#include "platform/base/Logging.h"
#include "platform/base/Time.h"
#include "proto/nvxproto.pb.h"

namespace ecu::koru::gpspub {

using FixState = pb::GnssHealth::State;

/// What comes from the receiver, in a second or since the start.
struct Reception {
  uint64_t bytes = 0;
  uint64_t sentences = 0;  ///< with a right checksum
  uint64_t rejected = 0;   ///< lines without
  uint64_t rmc = 0;        ///< of the sentences
  uint64_t frames = 0;     ///< UBX frames
};

/// What is known of the way to a valid fix. A plain value.
struct FixFacts {
  enum class Source { SWITCHED_OFF, RECEIVER, CAN };
  static constexpr int32_t VALID_STATUS = 3;

  /// Takes over what a position says that is about to be published.
  void takePosition(const GnssInfo& info);

  Source source = Source::SWITCHED_OFF;

  // The position published last.
  int32_t status = 1;       ///< GnssData.status: 3 valid and dated
  bool is_undated = false;  ///< valid but for its date
  int32_t satellites = -1;  ///< used; -1 not known
  double accuracy_m = std::numeric_limits<double>::quiet_NaN();

  // Source::CAN
  bool frames_come = false;  ///< the last wait ended with a time/date group

  // Source::RECEIVER
  std::string_view device = {};
  int open_error = 0;      ///< errno of the last attempt to open the device; 0: it is open
  bool went_away = false;  ///< the device hung up and has sent nothing since
  bool is_on_spi = false;
  bool radio_silent = false;
  int64_t silent_us = 0;          ///< since the last byte, or since the mode began
  bool ever_heard = false;        ///< a byte has come since the mode began
  bool reopens = false;           ///< the port is opened again because of it
  bool is_mute = false;           ///< it has been asked for long in vain, and positions are not trusted
  bool is_refusing = false;       ///< it has refused commands meanwhile
  bool is_sought = false;         ///< the rate of the serial port is not known
  unsigned rates_tried = 0;       ///< rates at which it was sought in vain
  unsigned baud = 0;              ///< bit/s
  Reception reception = {};       ///< of the last second
  bool antenna_on = true;         ///< by the system parameter
  unsigned antenna_status = 0;    ///< ANTENNA_OK ...; 0 not known
  int64_t supply_off_us = NEVER;  ///< since the supply was switched off at cold start; NEVER: it was not
};

/// Returns the state that the facts make, STARTING if they do not say yet. It changes with them and knows
/// nothing of the past.
[[nodiscard]] FixState judge(const FixFacts& facts);

/// Returns true if positions are published as valid in that state.
[[nodiscard]] bool isValid(FixState state);

/// Returns INFO for a state that is wanted, or that the sky makes; otherwise WARNING.
[[nodiscard]] logging::Level levelOf(FixState state);

/// How valid fixes came to be reported: for the first time, after a loss, or after fixes that were not
/// trusted.
enum class ValidChange { FIRST, AGAIN, TRUSTED };

/// Returns the state's reason in one line. `without_us` is how long there was no valid fix before those of a
/// valid state.
[[nodiscard]] std::string reasonOf(FixState state, const FixFacts& facts, ValidChange change,
                                   int64_t without_us);

}  // namespace ecu::koru::gpspub
