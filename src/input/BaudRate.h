#pragma once

#include <termios.h>

namespace ecu::koru::gpspub {

/// The speed of the receiver's port, which takes effect when an input opens it. Service thread only.
class BaudRate {
 public:
  /// Returns false if the speed is not supported; the last one set then holds.
  bool set(unsigned bits_per_second);
  /// Moves on to the next speed of the hunting order; the first one follows the last.
  void tryNext();
  [[nodiscard]] speed_t code() const { return m_baud_current; }
  [[nodiscard]] unsigned bitsPerSecond() const { return bitsPerSecond(m_baud_current); }
  /// Returns the speed of a code in bit/s; 0 if it is not supported.
  [[nodiscard]] static unsigned bitsPerSecond(speed_t code);
  /// Returns the speed in bit/s, but 9600 for 4800, which has no place in the hunting order.
  [[nodiscard]] unsigned hunted() const { return m_baud_current == B4800 ? 9600 : bitsPerSecond(); }

 private:
  speed_t m_baud_configured = B19200;
  speed_t m_baud_current = B19200;
};

}  // namespace ecu::koru::gpspub
