#pragma once

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
inline constexpr std::array<unsigned, 8> receiver_bauds{4800,  9600,   19200,  38400,
                                                        57600, 115200, 230400, 460800};

/// The serial line from the receiver to the host and the host's port at its end: 10 bits a byte at the line's
/// speed. All times are ns of the caller's clock.
class Line {
 public:
  /// A speed at which bytes take no time: there is no line, the receiver keeps them until the host fetches
  /// them.
  static constexpr unsigned at_once = 0xFFFFFFFF;

  explicit Line(unsigned baud) : m_baud(baud), m_host_baud(baud) {}

  /// Puts bytes on the line at `start_ns` or behind what is there, whichever is later.
  void send(std::string_view bytes, int64_t start_ns);
  /// When everything that was put on the line has been sent.
  [[nodiscard]] int64_t free_ns() const { return m_free_ns; }
  [[nodiscard]] int64_t duration_ns(size_t bytes) const;

  void advance_to(int64_t now_ns);
  /// The receiver's speed; only while nothing is on the line.
  void set_baud(unsigned baud);
  [[nodiscard]] unsigned baud() const { return m_baud; }
  /// What has not been sent by that time never will be; a byte in progress is cut off.
  void cut(int64_t now_ns);
  /// When the byte being sent has arrived; INT64_MAX when the line is idle.
  [[nodiscard]] int64_t next_byte_ns() const;
  /// When the last of the bytes that follow it without a gap has arrived; INT64_MAX when the line is idle.
  [[nodiscard]] int64_t run_end_ns() const;

  /// The host's speed; at 0 it hears nothing.
  void set_host_baud(unsigned baud);
  /// While nobody has opened the port, what arrives is lost; what was not read when it is closed too.
  void set_open(bool open);
  [[nodiscard]] size_t available() const { return m_arrived.size() - m_read; }
  size_t read(std::span<uint8_t> out);
  /// What has not been read never will be.
  void drop_arrived();

  [[nodiscard]] uint64_t bytes_sent() const { return m_bytes_sent; }
  /// Arrived while the port was closed or deaf, or more than the port keeps.
  [[nodiscard]] uint64_t bytes_lost() const { return m_bytes_lost; }

 private:
  struct Run {  // bytes without a gap
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
  std::optional<MistunedUart> m_mistuned;  // while the host's speed is another
  std::string m_arrived;
  size_t m_read = 0;  // of m_arrived
  uint64_t m_bytes_sent = 0, m_bytes_lost = 0;
};

}  // namespace ecu::koru::sim
