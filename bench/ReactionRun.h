#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "support/Process.h"

namespace bench {

/// Something that the service reacts to, and the effect at which the reaction shows. Without a device the
/// effect of the switch is a report to the service manager (off) or a record (on).
enum class Event {
  STOP,           ///< SIGTERM: the service manager gets STOPPING=1
  SILENCE_ON,     ///< radio silence requested: first byte to the receiver
  SILENCE_OFF,    ///< and lifted: the device is closed
  CONSTELLATION,  ///< a constellation is switched: first byte to the receiver
  GNSS_OFF,       ///< the device is closed
  GNSS_ON,        ///< the device is opened
  BROKER_BACK     ///< the broker has accepted the connection again: the service manager gets another status
};

enum class Device {
  NONE,        ///< it does not exist
  SILENT,      ///< it exists, and nothing ever comes
  RECEIVER,    ///< the simulated receiver at 1 Hz
  ANTENNA_OFF  ///< the same, without a fix until the service has it feed its antenna
};

/// A state of the service, and the events that it reacts to.
struct ReactionState {
  const char* name;
  Device device;
  std::string begins;         ///< how the report begins that shows it
  std::vector<Event> events;  ///< in the order in which they are measured; STOP is the last one
  test::Words unit{};         ///< options of ecu-sim
  std::string config{};       ///< further lines of the service's configuration
  bool is_silent = false;     ///< radio silence is requested after the report
  bool has_frames = false;    ///< another unit sends its signal groups
};

/// Milliseconds from each event to its effect.
using Reactions = std::map<Event, std::vector<double>>;

/// Measures all events of the state once in each of so many runs of the service. All of them start at once,
/// because some states take long to reach. Throws like ServiceRun.
[[nodiscard]] Reactions measureReactions(const ReactionState& state, size_t runs);

}  // namespace bench
