#include "tools/check/UnitCheck.h"

#include <cstdio>
#include <memory>
#include <tuple>
#include <utility>

#include "core/BusRequests.h"
#include "core/Unit.h"
#include "observe/GnssParameters.h"
#include "platform/com/Transport.h"
#include "platform/var/Variables.h"
#include "tools/check/BrokerCheck.h"
#include "wire/HexDump.h"

namespace ecu::koru::check {

namespace {

using var::SystemParameterMap;

constexpr const char* AREA = "variables";
constexpr const char* PARAMETERS = "parameters";
constexpr uint32_t SIMULATION_ID = 0x2045;
constexpr uint32_t RATE_ID = 0xA09B;

/// Takes note of the one change that a parameter makes.
class Change final : public gpspub::IGnssControl {
 public:
  void setGnssOn(bool on) override { m_on = on; }
  void setGnssAntennaOn(bool on) override { m_on = on; }
  void setGnssSystem(uint32_t /*bit*/, bool on) override { m_on = on; }
  void setRadioSilence(bool on) override { m_on = on; }
  void setHwVersion(const std::string& /*version*/) override {}
  void restartSequence() override {}
  [[nodiscard]] std::optional<bool> on() const { return m_on; }

 private:
  std::optional<bool> m_on;
};

std::string name_of(uint32_t id, std::string_view name) {
  char number[12];
  std::ignore = std::snprintf(number, sizeof number, "0x%04X ", id);
  return number + std::string(name);
}

std::string hex_of(const std::string& value) {
  return gpspub::hexDumpMessage(reinterpret_cast<const unsigned char*>(value.data()),
                                static_cast<int>(value.size()), 0, 0, false);
}

std::string meaning_of_version(const gpspub::Unit& unit, const std::string& version) {
  if (unit.isOnVehicleBuses()) return "fixes also go to the vehicle's buses";
  if (unit.servesTime()) return "fixes also go to the unit's time service";
  if (version == "n2") return "the receiver is on SPI, unless a device is configured";
  return "fixes go to MQTT only";
}

void tell_variables(const UnitState& state, Report& report) {
  const gpspub::Unit unit(state.hwvariant, state.hasgnss, state.hwversion, {});
  const std::pair<const char*, std::pair<const std::string&, std::string>> rows[] = {
      {"hwvariant", {state.hwvariant, "for the log only"}},
      {"hwversion", {state.hwversion, meaning_of_version(unit, state.hwversion)}},
      {"hasgnss",
       {state.hasgnss,
        unit.hasReceiver() ? "the unit has a receiver" : "the unit has no receiver, fixes come from CAN"}}};
  for (const auto& [name, row] : rows) {
    const auto& [value, meaning] = row;
    if (value.empty()) {
      report.find(AREA, name, "absent, or this login may not read it: the service does not start");
    } else {
      report.note(AREA, name, logging::text("\"", logging::escaped(value), "\": ", meaning));
    }
  }
}

/// Returns true if the built-in value is on: switching it on then changes nothing.
bool is_built_in_on(const gpspub::GnssParameter& parameter) {
  gpspub::BusRequests requests;
  const auto state = [&] {
    return std::tuple(requests.gnssOn(), requests.gnssAntennaOn(), requests.gnssSystemRequested());
  };
  const auto built_in = state();
  parameter.apply(requests, true);
  return state() == built_in;
}

void tell_switch(const SystemParameterMap& all, const gpspub::GnssParameter& parameter,
                 std::optional<bool> on, Report& report) {
  const std::string name = name_of(parameter.id, parameter.name);
  const std::string built_in = is_built_in_on(parameter) ? "on, as built in" : "off, as built in";
  const auto entry = all.find(parameter.id);
  if (entry == all.end()) return report.note(PARAMETERS, name, "absent: " + built_in);
  const std::string value = hex_of(entry->second.value());
  if (on) return report.note(PARAMETERS, name, value + (*on ? ": on" : ": off"));
  report.find(PARAMETERS, name,
              value + ": cannot be used (empty, or not marked as an over-the-air one), " + built_in);
}

void tell_rate(const SystemParameterMap& all, unsigned rate_hz, Report& report) {
  const std::string name = name_of(RATE_ID, "GNSS rate");
  const std::string taken = std::to_string(rate_hz) + " Hz";
  const auto entry = all.find(RATE_ID);
  if (entry == all.end()) return report.note(PARAMETERS, name, "absent: " + taken);
  const std::string& value = entry->second.value();
  if (!value.empty() && static_cast<uint8_t>(value[0]) == rate_hz)
    return report.note(PARAMETERS, name, hex_of(value) + ": " + taken);
  report.find(PARAMETERS, name, hex_of(value) + ": cannot be used, " + taken + " is taken");
}

/// Applies each parameter alone, with the service's own function, to see what it does.
void tell_parameters(const SystemParameterMap& all, Report& report) {
  const auto alone = [&](uint32_t id) {
    SystemParameterMap one;
    if (const auto entry = all.find(id); entry != all.end()) one.insert(*entry);
    return one;
  };
  for (const auto& row : gpspub::GNSS_PARAMETERS) {
    Change change;
    gpspub::applySystemParameters(alone(row.id), change);
    tell_switch(all, row, change.on(), report);
  }
  Change ignored;
  const auto start = gpspub::applySystemParameters(all, ignored);
  if (all.contains(SIMULATION_ID))
    report.note(PARAMETERS, name_of(SIMULATION_ID, "activateEhorizonSim"),
                start.simulation ? "on: the receiver is /dev/ttyUSB0, and nothing is sent to it" : "off");
  tell_rate(all, start.rate_hz, report);
}

}  // namespace

std::optional<UnitState> check_unit_state(const File& file, Report& report) {
  auto config = std::make_unique<config::Configuration>(*file.config);
  config->set("client_name", own_client_name());
  const auto transport = com::create_client(config, com::TransportType::MQTT);
  if (!transport->connect() || !transport->start()) {
    report.find(AREA, "connection", "not made a second time");
    return std::nullopt;
  }
  UnitState state;
  const auto variables = var::create_var_client(transport);
  state.hwvariant = variables->get("hwvariant");
  state.hwversion = variables->get("hwversion");
  state.hasgnss = variables->get("hasgnss");
  tell_variables(state, report);
  const auto parameters = var::create_sysparams_client(transport);
  tell_parameters(parameters->get_all(), report);
  gpspub::BusRequests requests;
  state.start = gpspub::applySystemParameters(parameters->get_all(), requests);
  state.systems = requests.gnssSystemRequested();
  transport->stop();
  return state;
}

}  // namespace ecu::koru::check
