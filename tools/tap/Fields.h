#pragma once

#include <nlohmann/json.hpp>
#include <span>
#include <string>
#include <string_view>

#include "tools/tap/Decode.h"

namespace ecu::koru::tap {

using Json = nlohmann::ordered_json;

/// Returns the fields of a decoded body by name, in the order of the message. Absent fields are left out.
///   numbers   64-bit integers exactly, floats in the fewest digits that give the same float; null if the
///             float is not finite
///   enums     by name
///   strings   as safe_text()
///   bytes     as hex_text(); the value of an ECU variable as safe_text()
///   entries   an object by parameter id, "0x0000A00F"
/// Fields that the message type does not have come last, as the hex text `unknown_fields`.
[[nodiscard]] Json fields(const Body& body, ValueView view);

/// Returns a number with fixed decimals, whatever the locale.
[[nodiscard]] std::string decimal(double value, int decimals);

/// Returns two lower-case digits a byte.
[[nodiscard]] std::string hex_text(std::string_view bytes);
[[nodiscard]] std::string hex_text(std::span<const uint8_t> bytes);

/// Makes outside text valid UTF-8: unchanged if it is already, otherwise with every byte from 0x80
/// on as "\xHH".
[[nodiscard]] std::string safe_text(std::string_view text);

}  // namespace ecu::koru::tap
