#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "sim/gnss/Receiver.h"

namespace ecu::koru::sim {

/// Carries out "power-cycle", "reset", "antenna ok|open|short" or "mute on|off" at that time; an empty line
/// is nothing. Returns what to tell the user when it is none of these.
[[nodiscard]] std::optional<std::string> carry_out(std::string_view line, Receiver& receiver, int64_t now_us);

/// The lines on standard input.
class Console {
 public:
  /// To be made before the process opens files of its own: a closed standard input stays one. Ignores
  /// SIGTTIN, so that a terminal's input does not stop the program in the background.
  Console();

  /// To wait for; -1 when the input has ended.
  [[nodiscard]] int descriptor() const { return m_fd; }
  /// The lines that are complete, without waiting, when the descriptor is ready. What is longer than a
  /// command can be is cut.
  [[nodiscard]] std::vector<std::string> read_lines();

 private:
  int m_fd = -1;
  std::string m_rest;
};

}  // namespace ecu::koru::sim
