#pragma once

#include <string>

#include "tools/check/FileCheck.h"

namespace ecu::koru::check {

/// Looks at the broker, the unit's variables and parameters, the receiver's device and its line, and changes
/// nothing. `device` is what the service is given with -g; empty: nothing. Returns false if a signal ended
/// it.
[[nodiscard]] bool check_live(const File& file, const std::string& device, Report& report);

}  // namespace ecu::koru::check
