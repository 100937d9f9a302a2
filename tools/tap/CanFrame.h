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

/// Returns "18FEF3FE", or "7FF" for a standard id.
[[nodiscard]] std::string can_id_text(uint32_t can_id, bool extended);

/// Returns a line as candump writes and canplayer reads it, with its line feed:
/// "(1795256130.123456) can0 18FEF31C#007B7C99FFFFFFFF". A group of over 8 bytes is a CAN FD frame ("##0").
/// The lowest byte of a J1939 id becomes `source_address`. If that is empty, ANY_SOURCE_ADDRESS becomes 1C,
/// vehicle navigation, and any other address stays.
[[nodiscard]] std::string candump_line(int64_t wall_us, std::string_view interface,
                                       const rt::SignalGroup& group, std::optional<uint8_t> source_address);

}  // namespace ecu::koru::tap
