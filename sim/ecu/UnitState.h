#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/com/Transport.h"
#include "sim/ecu/Command.h"

namespace ecu::koru::sim {

struct Publication {
  std::string topic;
  com::Message message;
};

/// The current state of the simulated unit. Does no I/O. Only one thread may use it at a time.
class UnitState {
 public:
  /// Variables and parameters are always retained; time zone, blackout and hardware version
  /// only with `retain_all`.
  explicit UnitState(bool retain_all) : m_retain_all(retain_all) {}

  /// Changes the state if the command concerns it. Returns the messages to publish, in order: for a parameter
  /// the new map and the change, none for help and quit.
  [[nodiscard]] std::vector<Publication> apply(const Command& command);

  /// Returns the whole state, each item in a new envelope. The last item is always the parameter map.
  [[nodiscard]] std::vector<Publication> everything() const;

 private:
  struct Apply;

  [[nodiscard]] Publication parameter_map() const;

  bool m_retain_all;
  std::map<std::string, std::string> m_variables;
  pb::SystemParameters m_parameters;
  std::optional<pb::TimeZone> m_time_zone;
  std::optional<bool> m_blackout;
  std::optional<std::string> m_hardware_version;
};

}  // namespace ecu::koru::sim
