#pragma once

#include <string>

namespace ecu::koru::gpspub {

/// Returns "satnavd version: BRANCH - VERSION - COMMIT - COMMIT DATE - BUILD TYPE compiled DATE at TIME".
[[nodiscard]] std::string versionBanner();

}  // namespace ecu::koru::gpspub
