#pragma once

#include <cstddef>
#include <istream>
#include <string>

namespace ecu::koru {

/// Reads from the current position of `input` to its end, but at most `max` bytes. Takes only as much memory
/// as there is text. Errors are left in the stream's state.
[[nodiscard]] std::string read_text(std::istream& input, size_t max);

}  // namespace ecu::koru
