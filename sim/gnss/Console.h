#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "sim/gnss/Receiver.h"

namespace ecu::koru::sim {

/// Carries out "power-cycle", "reset", "antenna ok|open|short", "mute on|off", "drop P" or "corrupt P" at
/// that time. Ignores an empty line. Returns an error text for the user if the line is anything else.
[[nodiscard]] std::optional<std::string> carry_out(std::string_view line, Receiver& receiver, int64_t now_us);

class Console {
 public:
  /// Create it before the process opens its own files, so that a closed standard input is noticed. Ignores
  /// SIGTTIN, so that terminal input does not stop the program in the background.
  Console();

  /// Returns the descriptor to wait on; -1 after the end of input.
  [[nodiscard]] int descriptor() const { return m_fd; }
  /// Returns the complete lines, and does not wait if the descriptor is ready. Cuts lines longer
  /// than any command.
  [[nodiscard]] std::vector<std::string> read_lines();

 private:
  int m_fd = -1;
  std::string m_rest;
};

}  // namespace ecu::koru::sim
