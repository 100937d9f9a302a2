#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <span>
#include <string>

#include "sim/gnss/MistunedUart.h"

namespace ecu::koru::sim {

/// The serial line from the host to the receiver: bytes come at the pace of the host's speed, and when that
/// is not the receiver's, its UART makes garbage of them. Times are ns of the caller's clock.
class HostLine {
 public:
  /// Bytes that wait for their turn; what the host writes beyond that is lost.
  static constexpr size_t capacity = 65536;

  /// Puts bytes on the line behind what is there. `baud` is the host's speed, at 0 they are lost.
  void write(std::span<const uint8_t> bytes, int64_t now_ns, unsigned baud);
  /// When the next byte has come in; INT64_MAX: none is on its way.
  [[nodiscard]] int64_t next_ns() const;
  /// What the receiver, at its speed, has heard until then; appended to `out`.
  void take(int64_t until_ns, unsigned own_baud, std::string& out);

 private:
  struct Byte {
    int64_t start_ns;
    unsigned baud;
    uint8_t value;
    [[nodiscard]] int64_t end_ns() const { return start_ns + int64_t{10} * 1'000'000'000 / baud; }
  };
  void hear(const Byte& byte, unsigned own_baud, std::string& out);

  std::deque<Byte> m_bytes;
  std::optional<MistunedUart> m_mistuned;  // of the latest byte, when its speed was another
  unsigned m_mistuned_baud = 0, m_own_baud = 0;
};

}  // namespace ecu::koru::sim
