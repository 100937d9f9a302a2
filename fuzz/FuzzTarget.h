#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "platform/base/Time.h"
#include "platform/com/MemoryTransport.h"

/// Shared by the fuzz targets. A target is a function of the bytes of one input. For any bytes it ends and
/// its promises hold. If the first byte of an input is odd, everything is logged.
namespace fuzz {

using Bytes = std::span<const uint8_t>;

struct Target {
  std::string_view name;
  void (*run)(Bytes input);
};
[[nodiscard]] std::span<const Target> targets();
/// Returns null if there is no such target.
[[nodiscard]] const Target* find_target(std::string_view name);
/// Runs the target in virtual time, and checks every log record.
void run(const Target& target, Bytes input);

/// Reports a broken promise and aborts, so that a fuzzer or a test notices.
void require(bool holds, const char* promise);

/// Reads an input from its front. Bytes beyond the end are 0.
class Input {
 public:
  explicit Input(Bytes bytes) : m_bytes(bytes) {}
  [[nodiscard]] bool empty() const { return m_bytes.empty(); }
  [[nodiscard]] uint8_t byte();
  /// Returns at most that many bytes.
  [[nodiscard]] Bytes take(size_t count);
  [[nodiscard]] Bytes rest() { return take(m_bytes.size()); }
  /// Returns the bytes up to the line feed, which is dropped.
  [[nodiscard]] std::string line();

 private:
  Bytes m_bytes;
};

[[nodiscard]] std::string text(Bytes bytes);
/// Returns `body` after a correct envelope header, as it arrives from the bus.
[[nodiscard]] ecu::koru::com::Message enveloped(Bytes body);
/// Returns the same for a pb::RtSignal with this value.
[[nodiscard]] ecu::koru::com::Message enveloped_signal(Bytes value);

/// Checks that every published message can be decoded and its numbers are in range. Clears the messages.
void check_published(ecu::koru::com::MemoryTransport& bus);

/// Returns the clock of all targets. It starts again with each input.
[[nodiscard]] ecu::koru::VirtualTime& virtual_time();

// The targets, one file each.
void framing(Bytes input);
void spi(Bytes input);
void sentences(Bytes input);
void epochs(Bytes input);
void ubx(Bytes input);
void envelope(Bytes input);
void observers(Bytes input);
void can_input(Bytes input);
void configuration(Bytes input);
void signals(Bytes input);
void service(Bytes input);

}  // namespace fuzz
