#pragma once

#include <cstdint>
#include <string>

namespace ecu::koru::sim {

/// A UART (8 data bits, no parity, one stop bit) on a line with another speed. It waits for a start bit,
/// samples in the middle of each of its own bit times, and delivers a byte even if the stop bit is wrong.
/// So it gives as much garbage, and the same bytes, as a real port. All times are ns of one clock and
/// never go back.
class MistunedUart {
 public:
  MistunedUart(unsigned line_baud, unsigned uart_baud) : m_line_baud(line_baud), m_uart_baud(uart_baud) {}

  /// Receives a byte whose start bit began at `start_ns`. Appends the bytes that the UART has
  /// completed to `out`.
  void byte(int64_t start_ns, uint8_t value, std::string& out);
  /// The line is idle until then.
  void idle(int64_t until_ns, std::string& out) { level(true, until_ns, out); }

 private:
  void level(bool high, int64_t until_ns, std::string& out);
  void sample(bool high, std::string& out);
  [[nodiscard]] int64_t sample_ns() const;

  static constexpr int WAITING = -1;
  unsigned m_line_baud, m_uart_baud;
  int64_t m_time_ns = INT64_MIN;  // the line is known until here
  int64_t m_start_ns = 0;         // of the frame being received
  int m_bit = WAITING;            // the next to sample: 0 start, 1 to 8 data, 9 stop
  bool m_was_high = true;
  uint8_t m_value = 0;
};

}  // namespace ecu::koru::sim
