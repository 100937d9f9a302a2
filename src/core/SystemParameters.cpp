#include "core/SystemParameters.h"

#include <optional>

#include "wire/ServiceLog.h"

namespace ecu::koru::gpspub {

namespace {

constexpr uint32_t HAS_OTAID = 0x01;  // bit 0 of an entry's flags
constexpr uint32_t SIMULATION_ID = 0x2045;
constexpr uint32_t GNSS_RATE_ID = 0xA09B;
constexpr unsigned DEFAULT_RATE_HZ = 1;
constexpr unsigned MAX_RATE_HZ = 4;
constexpr double MS_PER_S = 1000.0;

/// Returns the switch that the first value byte sets, or nothing if there is no usable value.
std::optional<bool> switchOf(const var::SystemParameterMap& parameters, uint32_t id, const char* name) {
  const auto entry = parameters.find(id);
  if (entry == parameters.end()) {
    LOG.detail(logflag::SYSTEM_PARAMETERS, "SysParams ", name, " Not found");
    return std::nullopt;
  }
  const std::string& value = entry->second.value();
  if ((entry->second.flags() & HAS_OTAID) == 0 || value.empty()) return std::nullopt;
  const auto byte = static_cast<uint8_t>(value[0]);
  LOG.detail(logflag::SYSTEM_PARAMETERS, "SysParams ", name, " = ", byte);
  return byte == 1;
}

unsigned defaultRate(const char* reason) {
  LOG.warning(reason, "Using the default value: ", DEFAULT_RATE_HZ, " Hz");
  return DEFAULT_RATE_HZ;
}

unsigned requestedRate(const var::SystemParameterMap& parameters) {
  const auto entry = parameters.find(GNSS_RATE_ID);
  if (entry == parameters.end()) return defaultRate("No GNSS rate sysparam has been found. ");
  if ((entry->second.flags() & HAS_OTAID) == 0) return defaultRate("GNSS rate sysparam has no otaid. ");
  const std::string& value = entry->second.value();
  const unsigned rate = value.empty() ? 0 : static_cast<uint8_t>(value[0]);
  if (rate == 0) return defaultRate("Invalid GNSS rate sysparam size. ");
  if (rate <= MAX_RATE_HZ) return rate;
  LOG.warning("The required rate: ", rate, " is higher than the maximum ", MAX_RATE_HZ,
              " Using the maximum allowed.");
  return MAX_RATE_HZ;
}

}  // namespace

StartParameters applySystemParameters(const var::SystemParameterMap& parameters, IGnssControl& control) {
  for (const GnssParameter& row : GNSS_PARAMETERS) {
    if (const auto on = switchOf(parameters, row.id, row.name)) row.apply(control, *on);
  }
  StartParameters start;
  start.simulation = switchOf(parameters, SIMULATION_ID, "activateEhorizonSim").value_or(false);
  start.rate_hz = requestedRate(parameters);
  start.period_ms = static_cast<uint16_t>(MS_PER_S / start.rate_hz);
  return start;
}

}  // namespace ecu::koru::gpspub
