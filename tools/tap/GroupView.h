#pragma once

#include <string>

#include "platform/rt/Signals.h"
#include "tools/tap/Fields.h"

/// Shows a signal group, which must be valid, as text.
namespace ecu::koru::tap {

/// Returns {"name", "can_id", "signals"}. `can_id` is in hex as in the signal database, and left out if the
/// group has none. `signals` holds for each signal, by name:
///   value   the physical value, whole numbers exactly; null if it is not valid or more than 8 raw bytes
///   unit    left out if the signal has no unit
///   status  "valid", "not available", "error", "out of range"
///   raw     the raw value's bytes in hex, lowest first
[[nodiscard]] Json group_json(const rt::SignalGroup& group);

/// Returns "VP1  latitude 48.137154 deg  longitude not available  raw 007b7c99ffffffff": the name, every
/// signal with its unit, and the packed bytes in hex. A group of raw bytes gives its name and its bytes in
/// hex, and also as text if they are printable.
[[nodiscard]] std::string group_text(const rt::SignalGroup& group);

}  // namespace ecu::koru::tap
