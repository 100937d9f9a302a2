#pragma once

#include <optional>
#include <string>

#include "core/SystemParameters.h"
#include "tools/check/FileCheck.h"

namespace ecu::koru::check {

/// What the service would learn about its unit at the start.
struct UnitState {
  std::string hwvariant;
  std::string hwversion;
  std::string hasgnss;
  gpspub::StartParameters start;
  uint32_t systems = 0;  ///< bit 0 GPS, 1 GLONASS, 2 BeiDou, 3 Galileo
};

/// Reads the ECU variables and system parameters and adds what they mean. Returns nothing if there is no
/// connection.
[[nodiscard]] std::optional<UnitState> check_unit_state(const File& file, Report& report);

}  // namespace ecu::koru::check
