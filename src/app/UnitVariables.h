#pragma once

#include <memory>
#include <optional>
#include <string>

#include "platform/com/Transport.h"

namespace ecu::koru::gpspub {

/// What the bus says about this unit before the service exists.
struct UnitVariables {
  std::string hwvariant;
  std::string hwversion;
  std::string hasgnss;
  bool simulation = false;  ///< the receiver is a simulator's
};

/// Reads the mandatory ECU variables and the simulation switch. Logs an ALERT and returns nothing if a
/// variable is missing.
[[nodiscard]] std::optional<UnitVariables> readUnitVariables(
    const std::shared_ptr<com::ITransportClient>& transport);

}  // namespace ecu::koru::gpspub
