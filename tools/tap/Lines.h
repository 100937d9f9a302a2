#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "tools/tap/Arrival.h"

namespace ecu::koru::tap {

/// Returns one JSON object, pure ASCII, without a line feed:
///   time        of arrival, "2026-11-21T10:15:30.123456Z"
///   arrival_ns  the same since boot
///   topic, retained
///   envelope    {protocol_type, header_length, body_length, timestamp_ns}, if the header could be read
///   type, body  the message type's name and its fields(), if the message could be decoded
///   group       its group_json(), if its bytes are a signal group
///   error, payload  otherwise, why it could not be decoded, and the whole payload in hex
[[nodiscard]] std::string json_line(const Arrival& arrival);

/// Returns one line for people, with its line feed. Nothing in it can move the terminal's cursor. A fix is
/// shown with units, a signal group as group_text(). A hex dump of the first 256 bytes follows a message that
/// cannot be decoded. With `sentences`, the sentences of a fix follow it, one indented line each.
[[nodiscard]] std::string human_line(const Arrival& arrival, bool sentences);

/// Breaks the lines of an ASCII text at blanks, between the fields if that leaves no great gap, so that none
/// is longer than `width`. The rest of a line is indented. A width of 0 or less than 20 changes nothing.
[[nodiscard]] std::string wrapped(std::string_view lines, size_t width);

}  // namespace ecu::koru::tap
