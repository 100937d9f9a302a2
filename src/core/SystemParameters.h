#pragma once

#include <cstdint>

#include "observe/GnssParameters.h"
#include "platform/var/Variables.h"

namespace ecu::koru::gpspub {

/// The settings that are read at the start only.
struct StartParameters {
  bool simulation = false;
  unsigned rate_hz = 1;
  uint16_t period_ms = 1000;  ///< between two solutions
};

/// Applies `parameters` to `control` and returns the settings of the start. A parameter that is absent, empty
/// or without an over-the-air id changes nothing, except the rate, which is then 1 Hz.
StartParameters applySystemParameters(const var::SystemParameterMap& parameters, IGnssControl& control);

}  // namespace ecu::koru::gpspub
