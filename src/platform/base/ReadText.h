#pragma once

#include <cstddef>
#include <istream>
#include <string>

namespace ecu::koru {

/// The text from where `input` stands to its end, but no more than `max` bytes. Takes as much memory as there
/// is text. What went wrong stands in the stream.
[[nodiscard]] std::string read_text(std::istream& input, size_t max);

}  // namespace ecu::koru
