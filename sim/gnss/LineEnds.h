#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace ecu::koru::sim {

/// The ends of a recording's NMEA lines. A line is a dollar sign and printable text up to a line feed. A byte
/// inside a UBX message never ends one.
struct LineEnds {
  size_t lines = 0;
  std::vector<size_t> without_cr;  ///< offsets of the line feeds that follow the text directly
};

[[nodiscard]] LineEnds find_line_ends(std::string_view bytes);

/// Returns the bytes with a carriage return before each line feed of `ends.without_cr`.
[[nodiscard]] std::string with_crlf(std::string_view bytes, const LineEnds& ends);

}  // namespace ecu::koru::sim
