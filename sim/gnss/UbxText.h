#pragma once

#include <string>

#include "sim/gnss/UbxFrame.h"

namespace ecu::koru::sim {

/// Returns a frame as text for people: its name, a summary of its payload, class, id, length and the
/// payload's bytes, such as "CFG-PRT poll 06 00 len 0" and "ACK-ACK of CFG-PRT 05 01 len 2: 06 00". Accepts
/// any payload; all characters are printable.
[[nodiscard]] std::string describe(const UbxFrame& frame);

/// Returns the name, such as "CFG-PRT"; for an unknown message its class and id, such as "0x0677".
[[nodiscard]] std::string name_of(UbxId id);

}  // namespace ecu::koru::sim
