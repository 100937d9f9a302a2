#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "sim/ecu/UnitState.h"
#include "sim/gnss/LinkRecording.h"

namespace ecu::koru::sim {

struct TimedPublication {
  int64_t at_us;  ///< since the service began
  Publication publication;
};

/// The unit's part of the bus while a link was recorded: what the service hears.
struct RecordedBus {
  std::vector<Publication> at_start;  ///< the broker had this when the service began
  std::vector<TimedPublication> later;
  double uptime_s = 0;  ///< time since boot at which the service began
  std::string note;     ///< what was left out of the file; empty: nothing
};

/// Reads a recording by satnav-tap --record that was made on the unit while `link` was recorded. The broker's
/// state is each message with the retain flag that is the first one on its topic, and every variable and
/// parameter from before the service began. Throws FileError if the file cannot be used or is of another
/// time.
[[nodiscard]] RecordedBus load_recorded_bus(const std::string& path, const LinkRecording& link);

}  // namespace ecu::koru::sim
