#pragma once

#include <string>

#include "platform/rt/Signals.h"
#include "tools/tap/Fields.h"

/// A signal group, which must be valid, as text.
namespace ecu::koru::tap {

/// {"name", "can_id", "signals"}: `can_id`, where the group has one, in hex as in the signal database; of
/// each signal, by its name:
///   value   the physical value, whole numbers exactly; null when not valid, and of raw bytes when there are
///           more than 8
///   unit    absent when there is none
///   status  "valid", "not available", "error", "out of range"
///   raw     the raw value's bytes in hex, lowest first
[[nodiscard]] Json group_json(const rt::SignalGroup& group);

/// "VP1  latitude 48.137154 deg  longitude not available  raw 007b7c99ffffffff": name, every signal with its
/// unit, and the packed bytes in hex. Raw bytes follow the name of their signal in hex, and as a text where
/// they are one.
[[nodiscard]] std::string group_text(const rt::SignalGroup& group);

}  // namespace ecu::koru::tap
