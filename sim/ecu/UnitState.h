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

/// What the simulated unit would tell somebody who asks now. No I/O, one thread at a time.
class UnitState {
 public:
  /// With `retain_all` not only variables and parameters are retained, but also time zone, blackout and
  /// hardware version.
  explicit UnitState(bool retain_all) : m_retain_all(retain_all) {}

  /// Changes the state, if the command is about it; gives what has to be published because of it, in this
  /// order. A parameter gives the new map and the change. Nothing for help and quit.
  [[nodiscard]] std::vector<Publication> apply(const Command& command);

  /// The whole state, each item in a new envelope. The parameter map is always there, and always the last.
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
