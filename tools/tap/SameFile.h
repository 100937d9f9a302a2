#pragma once

#include <string>

#include "tools/tap/Options.h"

namespace ecu::koru::tap {

/// Finds a file that would be written and that another option reads or writes too, whatever its path, and
/// also if it is standard output. Returns "--read and --record are the same file: drive.rec"; empty if there
/// is none. Terminals, pipes and devices may be shared.
[[nodiscard]] std::string shared_file(const Options& options);

}  // namespace ecu::koru::tap
