#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "sim/ecu/LineBuffer.h"
#include "sim/ecu/Publisher.h"
#include "tools/common/StandardOutput.h"

namespace ecu::koru::sim {

/// The simulated unit on the bus: publishes its state and follows commands on standard input. For
/// the main thread.
class Session {
 public:
  Session(com::ITransportClient& transport, UnitState& unit)
      : m_transport(transport), m_unit(unit), m_publisher(transport) {}

  /// Publishes the state, then `said_once`, and prints how many messages that were. Returns what failed;
  /// empty if nothing did.
  [[nodiscard]] std::string start(const std::vector<Publication>& said_once);

  /// Follows commands until quit, Ctrl-C or SIGTERM. It continues after the end of standard input. After each
  /// reconnect it publishes the whole state again, because a restarted broker has forgotten it.
  void keep();

 private:
  [[nodiscard]] bool read_commands();
  [[nodiscard]] bool obey(std::string_view line);
  void show_help();
  void publish(const Command& command);
  void restore_after_reconnect();

  com::ITransportClient& m_transport;
  UnitState& m_unit;
  Publisher m_publisher;
  LineBuffer m_input;
  tool::StandardOutput m_output;
  bool m_input_ended = false;
  bool m_complete = false;  // the broker has the whole state
};

}  // namespace ecu::koru::sim
