#pragma once

#include "tools/tap/live/Model.h"
#include "tools/tap/live/Text.h"

namespace ecu::koru::tap::live {

/// Returns the table of the satellites with a heading, at most `max_rows` rows: system, number, elevation,
/// azimuth, C/N0 with its bar; used ones have a star.
[[nodiscard]] Rows sky_rows(const Model& model, size_t width, size_t max_rows);

}  // namespace ecu::koru::tap::live
