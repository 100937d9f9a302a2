#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <deque>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "sim/gnss/MistunedUart.h"

namespace ecu::koru::sim {

/// The speeds that a receiver can have.
inline constexpr std::array<unsigned, 8> RECEIVER_BAUDS{4800,  9600,   19200,  38400,
                                                        57600, 115200, 230400, 460800};
[[nodiscard]] constexpr bool is_receiver_baud(unsigned baud) {
  return std::find(RECEIVER_BAUDS.begin(), RECEIVER_BAUDS.end(), baud) != RECEIVER_BAUDS.end();
}

/// The serial line from the receiver to the host, and the host's port. A byte takes 10 bits at the line's
/// speed. All times are ns of the caller's clock.
class Line {
 public:
  /// A speed at which bytes take no time. It stands for SPI: the receiver keeps the bytes until the
  /// host fetches them.
  static constexpr unsigned AT_ONCE = 0xFFFFFFFF;

  explicit Line(unsigned baud) : m_baud(baud), m_host_baud(baud) {}

  /// Puts bytes on the line at `start_ns` or after the bytes already there, whichever is later.
  void send(std::string_view bytes, int64_t start_ns);
  /// Returns when everything on the line will have been sent.
  [[nodiscard]] int64_t free_ns() const { return m_free_ns; }
  [[nodiscard]] int64_t duration_ns(size_t bytes) const;

  void advance_to(int64_t now_ns);
  /// Sets the receiver's speed. Call it only while the line is idle.
  void set_baud(unsigned baud);
  [[nodiscard]] unsigned baud() const { return m_baud; }
  /// Drops the bytes that are not sent completely by that time.
  void cut(int64_t now_ns);
  /// Returns when the byte being sent will have arrived; INT64_MAX if the line is idle.
  [[nodiscard]] int64_t next_byte_ns() const;
  /// Returns when the last byte before the next gap will have arrived; INT64_MAX if the line is idle.
  [[nodiscard]] int64_t run_end_ns() const;

  /// Sets the host's speed. At 0 it hears nothing.
  void set_host_baud(unsigned baud);
  [[nodiscard]] unsigned host_baud() const { return m_host_baud; }
  /// Opens or closes the port. Bytes that arrive while it is closed, and unread bytes when it is
  /// closed, are lost.
  void set_open(bool open);
  [[nodiscard]] size_t available() const { return m_arrived.size() - m_read; }
  size_t read(std::span<uint8_t> out);
  /// Drops the bytes that have arrived and were not read.
  void drop_arrived();

  [[nodiscard]] uint64_t bytes_sent() const { return m_bytes_sent; }
  /// Returns how many bytes were lost: they arrived while the port was closed, at speed 0 or full, or
  /// were dropped unread.
  [[nodiscard]] uint64_t bytes_lost() const { return m_bytes_lost; }

 private:
  struct Run {  // bytes that follow each other without a gap
    int64_t start_ns;
    std::string bytes;
    size_t sent = 0;
  };
  void restart_port();
  void arrive(int64_t start_ns, uint8_t byte);
  [[nodiscard]] int64_t end_of_byte_ns(const Run& run, size_t count) const {
    return run.start_ns + duration_ns(count);
  }

  unsigned m_baud, m_host_baud;
  bool m_open = true;
  std::deque<Run> m_runs;
  int64_t m_free_ns = INT64_MIN;
  std::optional<MistunedUart> m_mistuned;  // while the host's speed differs
  std::string m_arrived;
  size_t m_read = 0;  // of m_arrived
  uint64_t m_bytes_sent = 0, m_bytes_lost = 0;
};

}  // namespace ecu::koru::sim
