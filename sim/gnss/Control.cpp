#include "sim/gnss/Control.h"

#include <algorithm>

#include "sim/gnss/Reports.h"

namespace ecu::koru::sim {
namespace {

constexpr uint8_t cfg_class = 0x06;

UbxFrame acknowledge(UbxId command, bool done) {
  return {done ? ubx::ack_ack : ubx::ack_nak, {command.message_class, command.id}};
}

Reply only_acknowledge(UbxId command, bool done) {
  return {{acknowledge(command, done)}};
}

/// Chooses the kind of reset. A reset is not acknowledged; an unknown mode is refused.
Reply reset(const UbxFrame& command) {
  if (command.payload.size() != 4) return only_acknowledge(command.id, false);
  switch (command.payload[2]) {
    case 0:
    case 1:
    case 4:
      return {{}, Effect::restart};
    case 2:
    case 9:
      return {{}, Effect::start_navigation};
    case 8:
      return {{}, Effect::stop_navigation};
    default:
      return only_acknowledge(command.id, false);
  }
}

/// Goes to standby. The message has a short and a long form.
Reply power_management(const UbxFrame& command) {
  constexpr size_t short_form = 8, long_form = 16;
  const size_t size = command.payload.size();
  if (size != short_form && size != long_form) return {};
  const size_t at = size == long_form ? 4 : 0;
  constexpr uint32_t backup = 2, uart_receives = 8;
  if ((number_at(command.payload, at + 4, 4) & backup) == 0) return {};
  const int64_t duration_ms = number_at(command.payload, at, 4);
  const uint32_t sources = size == long_form ? number_at(command.payload, 12, 4) : uart_receives;
  return {{}, Effect::sleep, duration_ms * 1000, (sources & uart_receives) != 0};
}

unsigned factory_baud(const ReceiverOptions& options) {
  return options.faults.reset_to.value_or(options.initial_baud);
}

}  // namespace

Control::Control(const ReceiverOptions& options)
    : m_options(options),
      m_capabilities{monitor_map(options.supported), options.simultaneous},
      m_memory(factory_settings(options, factory_baud(options))),
      m_antenna(options.antenna, options.antenna_inverted) {
  if (options.spi) m_settings.host_port = Settings::spi;
  if (!options.power_up_defaults) {
    const auto device = options.faults.reset_to ? SettingsMemory::battery_backed : SettingsMemory::flash;
    m_memory.save(settings_of_options(options), section::all, device);
  }
  boot();
  if (options.power_up_defaults) m_settings.set_baud(options.initial_baud);
}

void Control::boot() {
  m_memory.load(m_settings, section::all);
  m_antenna.set_flags(m_settings.antenna_flags());
}

void Control::lose_power() {
  if (m_options.faults.reset_to) m_memory.clear(section::all, SettingsMemory::battery_backed);
}

void Control::set_antenna(AntennaState state) {
  m_antenna.set_state(state, m_settings.antenna_flags());
}

bool Control::refuses(UbxId id) const {
  const FaultOptions& faults = m_options.faults;
  if (faults.nak_all || std::find(faults.nak.begin(), faults.nak.end(), id) != faults.nak.end()) return true;
  constexpr std::array no_longer{ubx::cfg_gnss, ubx::cfg_nav5, ubx::cfg_nmea, ubx::cfg_rxm, ubx::cfg_ant};
  return faults.newer && std::find(no_longer.begin(), no_longer.end(), id) != no_longer.end();
}

Reply Control::obey(const UbxFrame& command) {
  if (refuses(command.id)) return only_acknowledge(command.id, false);
  if (command.id.message_class == cfg_class) return configure(command);
  if (command.id == ubx::rxm_pmreq) return power_management(command);
  if (!command.payload.empty()) return {};
  if (auto answer = report(command.id)) return {{*std::move(answer)}};
  return {};
}

Reply Control::configure(const UbxFrame& command) {
  if (command.id == ubx::cfg_rst) return reset(command);
  if (command.id == ubx::cfg_cfg) return save(command);
  const ConfigMessage* message = find_config_message(command.id);
  if (message == nullptr) return only_acknowledge(command.id, false);
  if (auto answer = message->answer(m_settings, command.payload))
    return {{{command.id, *std::move(answer)}, acknowledge(command.id, true)}};
  const bool done = message->apply(m_settings, command.payload, m_capabilities);
  if (done && command.id == ubx::cfg_ant) m_antenna.set_flags(m_settings.antenna_flags());
  return only_acknowledge(command.id, done);
}

/// Clears, saves and loads, in this order. A message without a device mask means all devices.
Reply Control::save(const UbxFrame& command) {
  const auto& payload = command.payload;
  if (payload.size() != 12 && payload.size() != 13) return only_acknowledge(command.id, false);
  const uint32_t devices = payload.size() == 13 ? payload[12] : 0x17;
  m_memory.clear(number_at(payload, 0, 4), devices);
  m_memory.save(m_settings, number_at(payload, 4, 4), devices);
  const uint32_t load = number_at(payload, 8, 4);
  m_memory.load(m_settings, load);
  if ((load & section::antenna) != 0) m_antenna.set_flags(m_settings.antenna_flags());
  return only_acknowledge(command.id, true);
}

std::optional<UbxFrame> Control::report(UbxId id) const {
  if (id == ubx::mon_ver) return version_report(m_options.faults.newer);
  if (id == ubx::mon_hw && !m_options.faults.newer)
    return hardware_report(m_antenna.report(m_settings.antenna_flags()));
  if (id == ubx::mon_gnss) {
    const uint8_t by_default = 0x03 & m_capabilities.supported_systems;
    return systems_report(m_capabilities, by_default, monitor_map(m_settings.constellations()));
  }
  if (id == ubx::nav_timeutc) return time_report(m_fix);
  return std::nullopt;
}

}  // namespace ecu::koru::sim
