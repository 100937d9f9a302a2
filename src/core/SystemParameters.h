#pragma once

#include <cstdint>
#include <string>

#include "platform/var/Variables.h"

namespace ecu::koru::gpspub {

/// The settings that the system parameters change at the start. Service thread.
struct SystemParameterTargets {
  uint32_t gnss_systems;  ///< wanted constellations: bit 0 GPS, 1 GLONASS, 2 BeiDou, 3 Galileo
  bool gnss_on;
  bool antenna_on;
  bool simulation;
  unsigned rate_hz;
  uint16_t period_ms;  ///< between two solutions
};

/// Applies `parameters` to `targets`. A parameter that is absent, empty or without an over-the-air id changes
/// nothing, except the rate, which is then 1 Hz.
void applySystemParameters(const var::SystemParameterMap& parameters, SystemParameterTargets& targets);

}  // namespace ecu::koru::gpspub
