#pragma once

#include <string>

#include "tools/tap/Fields.h"
#include "tools/tap/Statistics.h"

/// Writes the figures of a run. Pure functions, for any thread.
namespace ecu::koru::tap {

/// Returns a few lines for people. Nothing in them can move the terminal's cursor.
[[nodiscard]] std::string report_text(const Figures& figures);

/// Returns the same as one object. Times are in seconds, delays in milliseconds, distances in metres; a
/// figure that is not known is null. docs/tools.md has an example.
[[nodiscard]] Json report_json(const Figures& figures);

}  // namespace ecu::koru::tap
