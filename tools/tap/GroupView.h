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
///   text    the meaning of the raw value, left out if the signal database has no text for it
///   status  "valid", "not available", "error", "out of range"
///   raw     the raw value's bytes in hex, lowest first
[[nodiscard]] Json group_json(const rt::SignalGroup& group);

/// Returns the physical value with its unit, the text of the signal database for it ("3D") or why there is no
/// value. Raw bytes come in hex, and also as text if they are printable. Nothing in it can move the
/// terminal's cursor.
[[nodiscard]] std::string value_text(const rt::SignalGroup& group, const rt::Signal& signal);

/// Returns "VP1  latitude 48.137154 deg  longitude not available  raw 007b7c99ffffffff": the name, every
/// signal with its value_text(), and the packed bytes in hex. A group of raw bytes gives its name and value.
[[nodiscard]] std::string group_text(const rt::SignalGroup& group);

}  // namespace ecu::koru::tap
