#include "core/SystemParameters.h"

#include <array>
#include <optional>

#include "wire/ServiceLog.h"

namespace ecu::koru::gpspub {

namespace {

constexpr uint32_t HAS_OTAID = 0x01;  // bit 0 of an entry's flags
constexpr uint32_t GNSS_RATE_ID = 0xA09B;
constexpr unsigned DEFAULT_RATE_HZ = 1;
constexpr unsigned MAX_RATE_HZ = 4;
constexpr double MS_PER_S = 1000.0;

struct SystemRow {
  uint32_t id;
  const char* name;
  uint32_t bit;
};
constexpr std::array<SystemRow, 4> SYSTEMS{
    {{0xA01F, "GPS", 0x01}, {0xA020, "GLONASS", 0x02}, {0xA022, "BEIDOU", 0x04}, {0xA021, "GALILEO", 0x08}}};

struct SwitchRow {
  uint32_t id;
  const char* name;
  bool SystemParameterTargets::*target;
};
constexpr std::array<SwitchRow, 3> SWITCHES{
    {{0xA00F, "GNSSOn", &SystemParameterTargets::gnss_on},
     {0xA060, "GNSSAntennaOn", &SystemParameterTargets::antenna_on},
     {0x2045, "activateEhorizonSim", &SystemParameterTargets::simulation}}};

/// Returns the first value byte. In the log `on_text` or `absent_text` follows `label`.
std::optional<uint8_t> firstByte(const var::SystemParameterMap& parameters, uint32_t id,
                                 const std::string& label, const char* on_text, const char* absent_text) {
  const bool log = GnssUtils::debugIt(logflag::SYSTEM_PARAMETERS);
  const auto entry = parameters.find(id);
  if (entry == parameters.end()) {
    if (log) LOG.detail("SysParams ", label, absent_text);
    return std::nullopt;
  }
  const std::string& value = entry->second.value();
  if ((entry->second.flags() & HAS_OTAID) == 0 || value.empty()) return std::nullopt;
  const auto byte = static_cast<uint8_t>(value[0]);
  if (log) LOG.detail("SysParams ", label, on_text, byte);
  return byte;
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

void applySystemParameters(const var::SystemParameterMap& parameters, SystemParameterTargets& targets) {
  for (const SystemRow& row : SYSTEMS) {
    const auto byte = firstByte(parameters, row.id, row.name, " On = ", " On Not found");
    if (!byte) continue;
    targets.gnss_systems = *byte == 1 ? targets.gnss_systems | row.bit : targets.gnss_systems & ~row.bit;
  }
  for (const SwitchRow& row : SWITCHES) {
    if (const auto byte = firstByte(parameters, row.id, row.name, " = ", " Not found")) {
      targets.*row.target = *byte == 1;
    }
  }
  targets.rate_hz = requestedRate(parameters);
  targets.period_ms = static_cast<uint16_t>(MS_PER_S / targets.rate_hz);
}

}  // namespace ecu::koru::gpspub
