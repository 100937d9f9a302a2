#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <istream>
#include <string>

namespace ecu::koru {

/// Reads from the current position of `input` to its end, but at most `max` bytes. Takes only as much memory
/// as there is text. Errors are left in the stream's state.
[[nodiscard]] inline std::string read_text(std::istream& input, size_t max) {
  std::string text;
  std::array<char, 4096> block;
  while (input && text.size() < max) {
    input.read(block.data(), static_cast<std::streamsize>(std::min(block.size(), max - text.size())));
    text.append(block.data(), static_cast<size_t>(input.gcount()));
  }
  return text;
}

}  // namespace ecu::koru
