#include "app/UnitVariables.h"

#include "platform/var/Variables.h"
#include "wire/ServiceLog.h"

namespace ecu::koru::gpspub {

namespace {

constexpr uint32_t ACTIVATE_EHORIZON_SIM = 0x2045;

std::string readMandatory(var::VarClient& variables, const std::string& name) {
  std::string value = variables.get(name);
  if (value.empty()) {
    LOG.alert("Failed to get mandatory ECU variable '" + name + "' from ECU. Application exiting!");
  }
  return value;
}

/// Returns false if one is missing.
bool readMandatoryVariables(var::VarClient& variables, UnitVariables& out) {
  return !(out.hwvariant = readMandatory(variables, "hwvariant")).empty() &&
         !(out.hwversion = readMandatory(variables, "hwversion")).empty() &&
         !(out.hasgnss = readMandatory(variables, "hasgnss")).empty();
}

bool readSimulationSwitch(var::SysparamsClient& parameters) {
  const auto entry = parameters.get(ACTIVATE_EHORIZON_SIM);
  if (!entry) return false;
  const std::string& value = entry->value();
  LOG.debug("GPSDClient::GPSDClient activateEhorizonSim = ",
            value.empty() ? "" : std::to_string(static_cast<uint8_t>(value[0])));
  return !value.empty() && value[0] == 1;
}

}  // namespace

std::optional<UnitVariables> readUnitVariables(const std::shared_ptr<com::ITransportClient>& transport) {
  UnitVariables unit;
  if (!readMandatoryVariables(*var::create_var_client(transport), unit)) return std::nullopt;
  unit.simulation = readSimulationSwitch(*var::create_sysparams_client(transport));
  return unit;
}

}  // namespace ecu::koru::gpspub
