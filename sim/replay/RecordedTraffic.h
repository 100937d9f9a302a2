#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "sim/replay/PcapReader.h"

namespace ecu::koru::sim {

/// Something that happened on the receiver's link.
struct LinkEvent {
  enum class Kind {
    OPENED,   ///< the port, by the service
    RATE,     ///< it is open and has this speed
    CLOSED,   ///< by the service, or because the device went away
    SENT,     ///< to the receiver
    RECEIVED  ///< by the service in one read
  };
  Kind kind;
  int64_t at_us;      ///< since the first event, steady
  unsigned baud = 0;  ///< of OPENED and RATE, bit/s; 0: the device has no speed
  std::string bytes{};
};

/// A recording of the link (wire/LinkRecord.h), oldest event first.
struct RecordedTraffic {
  std::vector<LinkEvent> events;  ///< at least one
  int64_t begin_wall_us = 0;      ///< system clock at the first event, since 1970
  /// By how much the service may lag behind its times then: it began a moment before the first event. 0 for a
  /// recording made in virtual time.
  int64_t lag_us = 10'000;
  std::string problem;  ///< why the rest cannot be read; empty if nothing is missing
};

/// Reads a file. Throws BadRecording if it holds no event. A file that ends in the middle of one, because the
/// unit lost its power, is used up to there.
[[nodiscard]] RecordedTraffic read_recorded_traffic(const std::string& path);

}  // namespace ecu::koru::sim
