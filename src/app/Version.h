#pragma once

#include <string>

namespace ecu::koru::gpspub {

/// Returns "BRANCH - VERSION - COMMIT - COMMIT DATE - BUILD TYPE".
[[nodiscard]] std::string versionText();

/// Returns "satnavd version: BRANCH - VERSION - COMMIT - COMMIT DATE - BUILD TYPE compiled DATE at TIME".
[[nodiscard]] std::string versionBanner();

}  // namespace ecu::koru::gpspub
