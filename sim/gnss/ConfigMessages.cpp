#include "sim/gnss/ConfigMessages.h"

#include <algorithm>
#include <bit>

namespace ecu::koru::sim {
namespace {

using Payload = std::span<const uint8_t>;
using Answer = std::optional<std::vector<uint8_t>>;

/// A poll of a message that has no parameters.
template <auto part>
Answer answer(const Settings& settings, Payload query) {
  const auto& bytes = settings.*part;
  return query.empty() ? Answer(std::vector(bytes.begin(), bytes.end())) : std::nullopt;
}

template <size_t size>
bool take_over(std::array<uint8_t, size>& to, Payload payload) {
  std::copy_n(payload.begin(), std::min(payload.size(), size), to.begin());
  return true;
}

bool is_port(size_t number) {
  return number <= 4 && number != 2;
}

/// A poll without a payload asks for the port that it arrived on.
Answer answer_prt(const Settings& settings, Payload query) {
  if (query.size() > 1) return std::nullopt;
  const size_t port = query.empty() ? settings.host_port : query[0];
  if (!is_port(port)) return std::nullopt;
  return std::vector(settings.ports[port].begin(), settings.ports[port].end());
}

/// A UART takes only 8 data bits, no parity and one stop bit, at a speed that the line has.
bool apply_prt(Settings& settings, Payload payload, const Capabilities& /*capabilities*/) {
  if (payload.size() != 20 || !is_port(payload[0])) return false;
  if (payload[0] == Settings::UART1) {
    constexpr uint32_t FRAME_BITS = 0x3CC0;
    if ((number_at(payload, 4, 4) & FRAME_BITS) != 0x08C0) return false;
    if (!is_receiver_baud(number_at(payload, 8, 4))) return false;
  }
  return take_over(settings.ports[payload[0]], payload);
}

Answer answer_msg(const Settings& settings, Payload query) {
  if (query.size() != 2) return std::nullopt;
  const auto index = periodic_index({query[0], query[1]});
  if (!index) return std::nullopt;
  std::vector<uint8_t> payload{query[0], query[1]};
  payload.insert(payload.end(), settings.message_rates[*index].begin(), settings.message_rates[*index].end());
  return payload;
}

/// The short form sets the rate on the port that it arrives on.
bool apply_msg(Settings& settings, Payload payload, const Capabilities& /*capabilities*/) {
  if (payload.size() != 3 && payload.size() != 8) return false;
  const auto index = periodic_index({payload[0], payload[1]});
  if (!index) return false;
  auto& rates = settings.message_rates[*index];
  if (payload.size() == 8) return take_over(rates, payload.subspan(2));
  rates[settings.host_port] = payload[2];
  return true;
}

bool apply_rate(Settings& settings, Payload payload, const Capabilities& /*capabilities*/) {
  if (payload.size() != 6) return false;
  constexpr uint32_t FASTEST_MS = 100, MOST_CYCLES = 127, LAST_TIME_SYSTEM = 4;
  const uint32_t cycles = number_at(payload, 2, 2);
  if (number_at(payload, 0, 2) < FASTEST_MS || cycles == 0 || cycles > MOST_CYCLES) return false;
  return number_at(payload, 4, 2) <= LAST_TIME_SYSTEM && take_over(settings.rate, payload);
}

/// Takes continuous and power save mode.
bool apply_rxm(Settings& settings, Payload payload, const Capabilities& /*capabilities*/) {
  if (payload.size() != 2 || (payload[1] != 0 && payload[1] != 1 && payload[1] != 4)) return false;
  return take_over(settings.rxm, payload);
}

/// The pins change only if their highest bit is set.
bool apply_ant(Settings& settings, Payload payload, const Capabilities& /*capabilities*/) {
  if (payload.size() != 4) return false;
  constexpr size_t FLAGS_SIZE = 2;
  const bool reconfigure = (payload[3] & 0x80U) != 0;
  return take_over(settings.antenna, reconfigure ? payload : payload.first(FLAGS_SIZE));
}

/// Also takes the two shorter forms of older receivers. Refuses versions other than 4.0 and 4.10, because the
/// sentences would not differ from 4.0.
bool apply_nmea(Settings& settings, Payload payload, const Capabilities& /*capabilities*/) {
  if (payload.size() != 4 && payload.size() != 12 && payload.size() != 20) return false;
  return (payload[1] == 0x40 || payload[1] == 0x41) && take_over(settings.nmea, payload);
}

/// The bytes of CFG-NAV5 that belong to a bit of its mask.
struct Nav5Field {
  unsigned mask_bit;
  size_t offset, size;
};
constexpr std::array<Nav5Field, 13> NAV5_FIELDS{{{0, 2, 1},   // dynamic model
                                                 {1, 12, 1},  // least elevation
                                                 {2, 3, 9},   // mode and altitude of the fix
                                                 {3, 13, 1},  // dead reckoning
                                                 {4, 14, 2},  // position: dilution, accuracy
                                                 {4, 18, 2},
                                                 {5, 16, 2},  // time: the same
                                                 {5, 20, 2},
                                                 {6, 22, 1},  // static hold: speed, distance
                                                 {6, 28, 2},
                                                 {7, 23, 1},     // differential corrections
                                                 {8, 24, 2},     // signal strength
                                                 {10, 30, 1}}};  // UTC standard

bool apply_nav5(Settings& settings, Payload payload, const Capabilities& /*capabilities*/) {
  if (payload.size() != 36) return false;
  constexpr uint8_t LAST_MODEL = 10, LAST_MODE = 3;
  const uint32_t mask = number_at(payload, 0, 2);
  if ((mask & 1U) != 0 && (payload[2] > LAST_MODEL || payload[2] == 1)) return false;
  if ((mask & 4U) != 0 && (payload[3] == 0 || payload[3] > LAST_MODE)) return false;
  for (const Nav5Field& field : NAV5_FIELDS)
    if ((mask >> field.mask_bit & 1U) != 0)
      std::copy_n(payload.begin() + static_cast<std::ptrdiff_t>(field.offset), field.size,
                  settings.nav5.begin() + static_cast<std::ptrdiff_t>(field.offset));
  return true;
}

/// GPS and Galileo share a band; GLONASS and BeiDou each have their own. This receiver hears two bands at
/// once. The augmentation systems need GPS.
bool is_possible(const Settings& settings, const Capabilities& capabilities) {
  const unsigned systems = monitor_map(settings.constellations());
  constexpr unsigned GPS = 1, GLONASS = 2, BEIDOU = 4, GALILEO = 8;
  if (systems == 0 || (systems & ~static_cast<unsigned>(capabilities.supported_systems)) != 0) return false;
  if (std::popcount(systems) > capabilities.simultaneous) return false;
  const bool both_bands = (systems & GLONASS) != 0 && (systems & BEIDOU) != 0;
  if (both_bands && (systems & (GPS | GALILEO)) != 0) return false;
  unsigned reserved = 0;
  for (size_t at = 4; at + 8 <= settings.gnss.size(); at += 8) {
    const uint8_t id = settings.gnss[at];
    if ((settings.gnss[at + 4] & 1U) == 0) continue;
    if ((id == 1 || id == 4 || id == 5) && (systems & GPS) == 0) return false;
    if (settings.gnss[at + 1] > settings.gnss[at + 2]) return false;
    reserved += settings.gnss[at + 1];
  }
  return reserved <= settings.gnss[2];
}

/// Blocks of the message replace those of the same systems. Other systems stay as they are.
bool apply_gnss(Settings& settings, Payload payload, const Capabilities& capabilities) {
  constexpr size_t HEADER = 4, BLOCK = 8;
  if (payload.size() < HEADER || payload[0] != 0 || payload.size() != HEADER + BLOCK * payload[3])
    return false;
  Settings changed = settings;
  auto& gnss = changed.gnss;
  gnss[2] = std::min(payload[2], gnss[1]);
  for (size_t from = HEADER; from < payload.size(); from += BLOCK) {
    size_t to = HEADER;
    while (to < gnss.size() && gnss[to] != payload[from]) to += BLOCK;
    if (to == gnss.size()) return false;
    std::copy_n(payload.begin() + static_cast<std::ptrdiff_t>(from), BLOCK,
                gnss.begin() + static_cast<std::ptrdiff_t>(to));
  }
  if (!is_possible(changed, capabilities)) return false;
  settings.gnss = gnss;
  return true;
}

constexpr std::array<ConfigMessage, 8> CONFIG_MESSAGES{
    {{ubx::CFG_PRT, answer_prt, apply_prt},
     {ubx::CFG_MSG, answer_msg, apply_msg},
     {ubx::CFG_RATE, answer<&Settings::rate>, apply_rate},
     {ubx::CFG_RXM, answer<&Settings::rxm>, apply_rxm},
     {ubx::CFG_ANT, answer<&Settings::antenna>, apply_ant},
     {ubx::CFG_NMEA, answer<&Settings::nmea>, apply_nmea},
     {ubx::CFG_NAV5, answer<&Settings::nav5>, apply_nav5},
     {ubx::CFG_GNSS, answer<&Settings::gnss>, apply_gnss}}};

}  // namespace

const ConfigMessage* find_config_message(UbxId id) {
  for (const ConfigMessage& message : CONFIG_MESSAGES)
    if (message.id == id) return &message;
  return nullptr;
}

}  // namespace ecu::koru::sim
