#include "sim/gnss/Settings.h"

#include <algorithm>

namespace ecu::koru::sim {
namespace {

constexpr std::array<uint8_t, 20> UART_PORT{1, 0, 0, 0, 0xD0, 8, 0, 0, 0, 0, 0, 0, 7, 0, 3, 0, 0, 0, 0, 0};
constexpr std::array<uint8_t, 36> AUTOMATIC_NAV5{
    0xFF, 0xFF, 0,    3, 0,    0, 0,   0, 0x10, 0x27, 0, 0,  // mask: everything; portable; 2D or 3D
    5,    0,    0xFA, 0, 0xFA, 0, 100, 0, 0x5E, 1,    0, 60};

/// A block of CFG-GNSS: system, reserved channels, most channels, and the last byte of its flags.
struct GnssBlock {
  uint8_t id, reserved, most, flags_3;
};
constexpr std::array<GnssBlock, 7> GNSS_BLOCKS{
    {{0, 8, 16, 1}, {1, 1, 3, 1}, {2, 4, 8, 1}, {3, 8, 16, 1}, {4, 0, 8, 3}, {5, 0, 3, 5}, {6, 8, 14, 1}}};
constexpr uint8_t SBAS_ID = 1, QZSS_ID = 5;
constexpr uint8_t CHANNELS = 32;

bool contains(const std::vector<Constellation>& all, Constellation one) {
  return std::find(all.begin(), all.end(), one) != all.end();
}

std::array<uint8_t, 60> gnss_payload(const std::vector<Constellation>& enabled) {
  std::array<uint8_t, 60> payload{0, CHANNELS, CHANNELS, GNSS_BLOCKS.size()};
  for (size_t i = 0; i < GNSS_BLOCKS.size(); ++i) {
    const GnssBlock& block = GNSS_BLOCKS[i];
    bool on = (block.id == SBAS_ID || block.id == QZSS_ID) && contains(enabled, Constellation::gps);
    for (const Constellation constellation : enabled) on = on || names_of(constellation).gnss_id == block.id;
    const std::array<uint8_t, 8> bytes{block.id, block.reserved, block.most, 0, on, 0, 1, block.flags_3};
    std::copy(bytes.begin(), bytes.end(), payload.begin() + 4 + 8 * static_cast<std::ptrdiff_t>(i));
  }
  return payload;
}

void set_sentences(Settings& settings, std::initializer_list<Sentence> sentences) {
  for (size_t i = 0; i < PERIODIC_MESSAGES.size(); ++i) {
    const auto sentence = PERIODIC_MESSAGES[i].sentence;
    const bool on = sentence && std::find(sentences.begin(), sentences.end(), *sentence) != sentences.end();
    settings.message_rates[i] = on ? std::array<uint8_t, 6>{1, 1, 0, 1, 1, 0} : std::array<uint8_t, 6>{};
  }
}

}  // namespace

unsigned Settings::baud() const {
  return host_port == SPI ? Line::AT_ONCE : number_at(ports[UART1], 8, 4);
}

void Settings::set_baud(unsigned baud) {
  put_number(ports[UART1], 8, 4, baud);
}

EpochGrid Settings::grid(int rate_hz) const {
  const auto period_ms = static_cast<int64_t>(number_at(rate, 0, 2)) * number_at(rate, 2, 2);
  return period_ms == 1000 / rate_hz ? EpochGrid{1000, rate_hz} : EpochGrid{period_ms, 1};
}

NmeaVersion Settings::nmea_version() const {
  return nmea[1] >= 0x41 ? NmeaVersion::v4_10 : NmeaVersion::v4_0;
}

std::vector<Constellation> Settings::constellations() const {
  std::vector<Constellation> enabled;
  for (const Constellation constellation : ALL_CONSTELLATIONS)
    for (size_t at = 4; at + 8 <= gnss.size(); at += 8)
      if (gnss[at] == names_of(constellation).gnss_id && (gnss[at + 4] & 1U) != 0)
        enabled.push_back(constellation);
  return enabled;
}

void copy_sections(Settings& to, const Settings& from, uint32_t mask) {
  if ((mask & section::PORTS) != 0) to.ports = from.ports;
  if ((mask & section::MESSAGES) != 0) to.message_rates = from.message_rates;
  if ((mask & section::NAVIGATION) != 0) {
    to.rate = from.rate;
    to.nav5 = from.nav5;
    to.nmea = from.nmea;
  }
  if ((mask & section::RECEPTION) != 0) {
    to.gnss = from.gnss;
    to.rxm = from.rxm;
  }
  if ((mask & section::ANTENNA) != 0) to.antenna = from.antenna;
}

Settings factory_settings(const ReceiverOptions& options, unsigned baud) {
  Settings settings;
  for (size_t port = 0; port < settings.ports.size(); ++port) {
    settings.ports[port] = UART_PORT;
    settings.ports[port][0] = static_cast<uint8_t>(port);
    if (port != Settings::UART1) put_number(settings.ports[port], 4, 4, port == 0 ? 0x84 : 0);
  }
  settings.set_baud(baud);
  if (options.spi) put_number(settings.ports[Settings::SPI], 2, 2, options.tx_ready);
  set_sentences(settings,
                {Sentence::rmc, Sentence::vtg, Sentence::gga, Sentence::gsa, Sentence::gsv, Sentence::gll});
  settings.rate = {0xE8, 3, 1, 0, 1, 0};
  settings.nav5 = AUTOMATIC_NAV5;
  const bool newer_sentences = options.sentences.version == NmeaVersion::v4_10;
  settings.nmea = {0, static_cast<uint8_t>(newer_sentences ? 0x41 : 0x40), 0, 2, 0, 0, 0, 0, 0, 0, 0, 1};
  settings.gnss = gnss_payload(options.sentences.constellations);
  settings.antenna = {static_cast<uint8_t>(options.antenna_supply ? 0x1B : 0x1A), 0, 0xF0, 0xB9};
  return settings;
}

Settings settings_of_options(const ReceiverOptions& options) {
  Settings settings = factory_settings(options, options.baud);
  set_sentences(settings, {Sentence::rmc, Sentence::gga, Sentence::gsa, Sentence::gst});
  if (options.sentences.gsv) settings.message_rates[*periodic_index({0xF0, 0x03})] = {1, 1, 0, 1, 1, 0};
  put_number(settings.rate, 0, 2, 1000 / static_cast<uint32_t>(options.rate_hz));
  return settings;
}

uint8_t monitor_map(const std::vector<Constellation>& constellations) {
  unsigned map = 0;
  for (const Constellation constellation : constellations) map |= names_of(constellation).monitor_bit;
  return static_cast<uint8_t>(map);
}

void SettingsMemory::save(const Settings& settings, uint32_t mask, uint32_t devices) {
  for (auto [store, device] : {std::pair(&m_battery_backed, battery_backed), std::pair(&m_flash, flash)}) {
    if ((devices & device) == 0) continue;
    copy_sections(store->settings, settings, mask);
    store->valid |= mask;
  }
}

void SettingsMemory::clear(uint32_t mask, uint32_t devices) {
  if ((devices & battery_backed) != 0) m_battery_backed.valid &= ~mask;
  if ((devices & flash) != 0) m_flash.valid &= ~mask;
}

void SettingsMemory::load(Settings& settings, uint32_t mask) const {
  copy_sections(settings, m_factory, mask);
  copy_sections(settings, m_flash.settings, mask & m_flash.valid);
  copy_sections(settings, m_battery_backed.settings, mask & m_battery_backed.valid);
}

}  // namespace ecu::koru::sim
