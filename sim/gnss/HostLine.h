#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <span>
#include <string>

#include "sim/gnss/MistunedUart.h"

namespace ecu::koru::sim {

/// The serial line from the host to the receiver. Bytes arrive at the host's speed. If the receiver's speed
/// differs, its UART turns them into garbage. Times are ns of the caller's clock.
class HostLine {
 public:
  /// The most bytes that wait. Bytes that the host writes beyond that are lost.
  static constexpr size_t CAPACITY = 65536;

  /// Puts bytes on the line after those already there. `baud` is the host's speed; at 0 the bytes are lost.
  void write(std::span<const uint8_t> bytes, int64_t now_ns, unsigned baud);
  /// Returns when the next byte will have arrived; INT64_MAX if none is on its way.
  [[nodiscard]] int64_t next_ns() const;
  /// Appends to `out` the bytes that the receiver, at its speed, has heard until then.
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
  std::optional<MistunedUart> m_mistuned;  // used if the latest byte had another speed
  unsigned m_mistuned_baud = 0, m_own_baud = 0;
};

}  // namespace ecu::koru::sim
