#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

#include "scenario/World.h"

namespace test {

/// A UBX frame with its checksum, written down here by the public definition and not by the service's code.
[[nodiscard]] std::string ubx(uint8_t cls, uint8_t id, const std::string& payload = {});
/// Bytes from hex text; blanks are allowed.
[[nodiscard]] std::string bytes(const std::string& hex);
/// "06 00" of a frame: class and id; "06 00 poll" without payload.
[[nodiscard]] std::string kind(const std::string& frame);

}  // namespace test
