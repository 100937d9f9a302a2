#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/rt/Signals.h"

/// Writes signal groups as CAN frames. Pure functions, for any thread.
namespace ecu::koru::tap {

/// In a J1939 id of the signal database, means that the frame comes from any node.
inline constexpr uint8_t ANY_SOURCE_ADDRESS = 0xFE;
/// J1939 address of vehicle navigation. A frame on a real bus needs a sender.
inline constexpr uint8_t DEFAULT_SOURCE_ADDRESS = 0x1C;

/// Returns "18FEF3FE", or "7FF" for a standard id.
[[nodiscard]] std::string can_id_text(uint32_t can_id, bool extended);

/// Returns the group's id with `source_address` as its lowest byte. If that is empty, ANY_SOURCE_ADDRESS
/// becomes the default, and any other address stays. A standard id has no address and stays.
[[nodiscard]] uint32_t frame_id(const rt::GroupDefinition& group, std::optional<uint8_t> source_address);

/// Returns a line as candump writes and canplayer reads it, with its line feed:
/// "(1795256130.123456) can0 18FEF31C#007B7C99FFFFFFFF". A group of over 8 bytes is a CAN FD frame ("##0").
[[nodiscard]] std::string candump_line(int64_t wall_us, std::string_view interface,
                                       const rt::SignalGroup& group, std::optional<uint8_t> source_address);

}  // namespace ecu::koru::tap
