#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/rt/Signals.h"

/// Signal groups as the CAN frames that they are. Pure functions, any thread.
namespace ecu::koru::tap {

/// In a J1939 id of the signal database: the frame comes from any node.
inline constexpr uint8_t ANY_SOURCE_ADDRESS = 0xFE;
/// Of vehicle navigation. A frame on a real bus needs a sender.
inline constexpr uint8_t DEFAULT_SOURCE_ADDRESS = 0x1C;

/// "18FEF3FE", or "7FF" of a standard id.
[[nodiscard]] std::string can_id_text(uint32_t can_id, bool extended);

/// The group's id with `source_address` as its lowest byte; without one, "any" becomes the default and every
/// other one stays. A standard id has none.
[[nodiscard]] uint32_t frame_id(const rt::GroupDefinition& group, std::optional<uint8_t> source_address);

/// One line as candump writes and canplayer reads them, with its line feed:
/// "(1795256130.123456) can0 18FEF31C#007B7C99FFFFFFFF". A group of more than 8 bytes is a CAN FD frame
/// ("##0").
[[nodiscard]] std::string candump_line(int64_t wall_us, std::string_view interface,
                                       const rt::SignalGroup& group, std::optional<uint8_t> source_address);

}  // namespace ecu::koru::tap
