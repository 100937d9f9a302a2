#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "tools/tap/Decode.h"

namespace ecu::koru::tap {

/// A message as it came in.
struct Arrival {
  std::string_view topic;
  std::span<const uint8_t> payload;
  int64_t wall_us = 0;   ///< system clock, since 1970
  uint64_t boot_ns = 0;  ///< since boot
  bool retained = false;
};

/// One JSON object, pure ASCII, without line feed:
///   time        when it arrived, "2026-11-21T10:15:30.123456Z"
///   arrival_ns  the same since boot
///   topic, retained
///   envelope    {protocol_type, header_length, body_length, timestamp_ns}, when there is one
///   type, body  the message type's name and its fields(), when it could be decoded
///   group       its group_json(), when its bytes are a signal group
///   error, payload  otherwise why it could not, and the whole payload in hex
[[nodiscard]] std::string json_line(const Arrival& arrival);

/// One line for people, with its line feed; nothing in it can move the terminal's cursor. A fix is laid out
/// with units, a signal group as group_text(). A message that cannot be decoded is followed by a hex dump of
/// its first 256 bytes, a fix with `sentences` by its sentences, one indented line each.
[[nodiscard]] std::string human_line(const Arrival& arrival, bool sentences);

/// When a message that arrived at `boot_ns` did so by the system clock, us since 1970.
[[nodiscard]] int64_t wall_us_of(uint64_t boot_ns);

/// "2026-11-21T10:15:30.123456Z" with 0 to 6 digits behind the second.
[[nodiscard]] std::string iso_time(int64_t us_since_1970, int digits);

}  // namespace ecu::koru::tap
