#pragma once

#include <string>

#include "sim/gnss/UbxFrame.h"

namespace ecu::koru::sim {

/// A frame for people: its name, what its payload says, class, id, length and the payload's bytes, such as
/// "CFG-PRT poll 06 00 len 0" and "ACK-ACK of CFG-PRT 05 01 len 2: 06 00". Any payload will do; what is not
/// printable does not come out.
[[nodiscard]] std::string describe(const UbxFrame& frame);

/// "CFG-PRT"; for what has no name here its class and id, "0x0677".
[[nodiscard]] std::string name_of(UbxId id);

}  // namespace ecu::koru::sim
