#include "sim/gnss/Control.h"

#include <algorithm>

#include "sim/gnss/Reports.h"

namespace ecu::koru::sim {
namespace {

constexpr uint8_t CFG_CLASS = 0x06;

UbxFrame acknowledge(UbxId command, bool done) {
  return {done ? ubx::ACK_ACK : ubx::ACK_NAK, {command.message_class, command.id}};
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
  constexpr size_t SHORT_FORM = 8, LONG_FORM = 16;
  const size_t size = command.payload.size();
  if (size != SHORT_FORM && size != LONG_FORM) return {};
  const size_t at = size == LONG_FORM ? 4 : 0;
  constexpr uint32_t BACKUP = 2, UART_RECEIVES = 8;
  if ((number_at(command.payload, at + 4, 4) & BACKUP) == 0) return {};
  const int64_t duration_ms = number_at(command.payload, at, 4);
  const uint32_t sources = size == LONG_FORM ? number_at(command.payload, 12, 4) : UART_RECEIVES;
  return {{}, Effect::sleep, duration_ms * 1000, (sources & UART_RECEIVES) != 0};
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
  if (options.spi) m_settings.host_port = Settings::SPI;
  if (!options.power_up_defaults) {
    const auto device = options.faults.reset_to ? SettingsMemory::battery_backed : SettingsMemory::flash;
    m_memory.save(settings_of_options(options), section::ALL, device);
  }
  boot();
  if (options.power_up_defaults) m_settings.set_baud(options.initial_baud);
}

void Control::boot() {
  m_memory.load(m_settings, section::ALL);
  m_antenna.set_flags(m_settings.antenna_flags());
}

void Control::lose_power() {
  if (m_options.faults.reset_to) m_memory.clear(section::ALL, SettingsMemory::battery_backed);
}

void Control::set_antenna(AntennaState state) {
  m_antenna.set_state(state, m_settings.antenna_flags());
}

bool Control::refuses(UbxId id) const {
  const FaultOptions& faults = m_options.faults;
  if (faults.nak_all || std::find(faults.nak.begin(), faults.nak.end(), id) != faults.nak.end()) return true;
  constexpr std::array NO_LONGER{ubx::CFG_GNSS, ubx::CFG_NAV5, ubx::CFG_NMEA, ubx::CFG_RXM, ubx::CFG_ANT};
  return faults.newer && std::find(NO_LONGER.begin(), NO_LONGER.end(), id) != NO_LONGER.end();
}

Reply Control::obey(const UbxFrame& command) {
  if (refuses(command.id)) return only_acknowledge(command.id, false);
  if (command.id.message_class == CFG_CLASS) return configure(command);
  if (command.id == ubx::RXM_PMREQ) return power_management(command);
  if (!command.payload.empty()) return {};
  if (auto answer = report(command.id)) return {{*std::move(answer)}};
  return {};
}

Reply Control::configure(const UbxFrame& command) {
  if (command.id == ubx::CFG_RST) return reset(command);
  if (command.id == ubx::CFG_CFG) return save(command);
  const ConfigMessage* message = find_config_message(command.id);
  if (message == nullptr) return only_acknowledge(command.id, false);
  if (auto answer = message->answer(m_settings, command.payload))
    return {{{command.id, *std::move(answer)}, acknowledge(command.id, true)}};
  const bool done = message->apply(m_settings, command.payload, m_capabilities);
  if (done && command.id == ubx::CFG_ANT) m_antenna.set_flags(m_settings.antenna_flags());
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
  if ((load & section::ANTENNA) != 0) m_antenna.set_flags(m_settings.antenna_flags());
  return only_acknowledge(command.id, true);
}

std::optional<UbxFrame> Control::report(UbxId id) const {
  if (id == ubx::MON_VER) return version_report(m_options.faults.newer);
  if (id == ubx::MON_HW && !m_options.faults.newer)
    return hardware_report(m_antenna.report(m_settings.antenna_flags()));
  if (id == ubx::MON_GNSS) {
    const uint8_t by_default = 0x03 & m_capabilities.supported_systems;
    return systems_report(m_capabilities, by_default, monitor_map(m_settings.constellations()));
  }
  if (id == ubx::NAV_TIMEUTC) return time_report(m_fix);
  return std::nullopt;
}

}  // namespace ecu::koru::sim
