#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "tools/tap/Arrival.h"

/// The format of a recording of the bus: lines of JSON, first a header and then one object a message, in the
/// order of arrival. Pure functions, for any thread.
namespace ecu::koru::tap {

/// Goes up when older programs could no longer read a recording. Additional members are no reason for that.
inline constexpr int RECORDING_VERSION = 1;

/// A moment on the clocks of the machine that listens: when that began, or a message came.
struct Moment {
  int64_t wall_us = 0;   ///< system clock, since 1970
  uint64_t boot_ns = 0;  ///< since boot
};

struct RecordedMessage {
  std::string topic;
  std::vector<uint8_t> payload;
  int64_t wall_us = 0;
  uint64_t boot_ns = 0;
  bool retained = false;

  /// Returns the message as it came. It borrows this object's topic and payload.
  [[nodiscard]] Arrival arrival() const;
};

/// Returns {"format":"satnav-tap recording","version":1,"wall_us":...,"boot_ns":...} and a line feed.
[[nodiscard]] std::string header_line(const Moment& beginning);
/// Returns {"wall_us":...,"boot_ns":...,"retained":...,"topic":"...","payload":"hex"} and a line feed.
[[nodiscard]] std::string message_line(const Arrival& arrival);

/// Read these lines again, with or without the line feed. Return why a line cannot be used instead, such as
/// "the payload is not hexadecimal".
[[nodiscard]] std::variant<Moment, std::string> read_header_line(std::string_view line);
[[nodiscard]] std::variant<RecordedMessage, std::string> read_message_line(std::string_view line);

}  // namespace ecu::koru::tap
