#include "platform/base/ReadText.h"

#include <algorithm>
#include <array>

namespace ecu::koru {

std::string read_text(std::istream& input, size_t max) {
  std::string text;
  std::array<char, 4096> block;
  while (input && text.size() < max) {
    input.read(block.data(), static_cast<std::streamsize>(std::min(block.size(), max - text.size())));
    text.append(block.data(), static_cast<size_t>(input.gcount()));
  }
  return text;
}

}  // namespace ecu::koru
