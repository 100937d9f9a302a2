#pragma once

#include <string_view>

namespace ecu::koru::rt {

/// The text of signals/satnavd.dbc, which the build embeds.
extern const std::string_view BUILTIN_SIGNALS;

}  // namespace ecu::koru::rt
