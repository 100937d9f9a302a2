#pragma once

#include "platform/Logging.h"

namespace ecu::koru::gpspub {

/// The service's own log records.
inline constexpr logging::Module LOG = logging::module("koru.gpspub");

}  // namespace ecu::koru::gpspub
