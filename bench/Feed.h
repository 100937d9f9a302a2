#pragma once

#include <cstddef>
#include <deque>
#include <functional>
#include <string>

#include "bench/Stop.h"
#include "sim/gnss/Pty.h"
#include "sim/gnss/Receiver.h"

namespace bench {

enum class Feeding {
  ONE_PIECE,  ///< an epoch's bytes at once, when the last one would have arrived
  PIECES,     ///< as a UART hands them over: 16 bytes at a time, each when its last byte has arrived
  SILENT      ///< nothing
};

/// The bytes of one simulated receiver, RMC GGA GSA GSA GST at 1 Hz and 38400 baud, for several programs at
/// the same moments. Each has a pseudo-terminal of its own.
class Feed {
 public:
  static constexpr unsigned BAUD = 38400;

  explicit Feed(size_t terminals);

  [[nodiscard]] const std::string& device(size_t terminal) const { return m_terminals[terminal].path(); }
  /// Returns true if every terminal is open at its other end.
  [[nodiscard]] bool isHeld() const;
  /// Feeds the epochs of the next `seconds` seconds and returns in the pause after the last one. From one
  /// call to the next, the pauses are a whole number of seconds apart. Throws std::runtime_error if a program
  /// does not read, and after a signal that ends the program.
  void play(Feeding feeding, int seconds);

 private:
  void playEpoch(Feeding feeding);
  /// Returns the bytes of the present second's epoch.
  [[nodiscard]] std::string epoch();
  [[nodiscard]] std::string bytesUntil(std::chrono::microseconds since_start);
  void write(std::string_view bytes);

  std::deque<ecu::koru::sim::Pty> m_terminals;
  ecu::koru::sim::Receiver m_receiver;
  const Clock::time_point m_start = Clock::now();
  std::chrono::seconds m_second{0};  // of the epoch that comes next, since the start
};

}  // namespace bench
