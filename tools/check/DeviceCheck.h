#pragma once

#include <string>

#include "tools/check/Report.h"

namespace ecu::koru::check {

/// Looks whether the device can be opened and who holds it. If nobody does, listens at the baud rates of the
/// service's hunt, the configured one first, until a receiver is understood. Sends nothing, and restores the
/// terminal's settings. Returns false if a signal ended that.
[[nodiscard]] bool check_device(const std::string& path, unsigned baud_rate, Report& report);

}  // namespace ecu::koru::check
