#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "platform/base/Time.h"
#include "platform/com/MemoryTransport.h"

/// What the fuzz targets share. A target is a function of the bytes of one input; whatever the bytes, it
/// ends, and what it promises holds. The first byte of each input is the logging: odd switches everything on.
namespace fuzz {

using Bytes = std::span<const uint8_t>;

/// One entry of the table of targets.
struct Target {
  std::string_view name;
  void (*run)(Bytes input);
};
[[nodiscard]] std::span<const Target> targets();
/// Null when there is no such target.
[[nodiscard]] const Target* find_target(std::string_view name);
/// Puts the log stand-in and virtual time in and runs the target.
void run(const Target& target, Bytes input);

/// Reports a broken promise and aborts, which is how a fuzzer and a test see it.
void require(bool holds, const char* promise);

/// Takes an input apart from its front. Beyond the end there are zeros.
class Input {
 public:
  explicit Input(Bytes bytes) : m_bytes(bytes) {}
  [[nodiscard]] bool empty() const { return m_bytes.empty(); }
  [[nodiscard]] uint8_t byte();
  /// At most so many.
  [[nodiscard]] Bytes take(size_t count);
  [[nodiscard]] Bytes rest() { return take(m_bytes.size()); }
  /// Up to the line feed, which is dropped.
  [[nodiscard]] std::string line();

 private:
  Bytes m_bytes;
};

[[nodiscard]] std::string text(Bytes bytes);
/// `body` behind a right envelope header, as it arrives from the bus.
[[nodiscard]] ecu::koru::com::Message enveloped(Bytes body);
/// The same around a pb::RtSignal.
[[nodiscard]] ecu::koru::com::Message enveloped_signal(Bytes value);

/// Every message that the service published decodes, and its numbers are in their range. Forgets the
/// messages.
void check_published(ecu::koru::com::MemoryTransport& bus);

/// The clock of all targets; it starts anew with each input.
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
