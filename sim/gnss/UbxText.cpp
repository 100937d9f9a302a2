#include "sim/gnss/UbxText.h"

#include <array>

#include "sim/gnss/Messages.h"
#include "sim/gnss/Text.h"

namespace ecu::koru::sim {
namespace {

using Payload = std::span<const uint8_t>;

std::string decimal_at(Payload p, size_t offset, size_t width) {
  return std::to_string(number_at(p, offset, width));
}

std::string hex_at(Payload p, size_t offset, size_t width) {
  return "0x" + hex(number_at(p, offset, width), 2 * static_cast<int>(width));
}

/// Returns the name of the message whose class and id begin the payload.
std::string message_name(Payload p) {
  return name_of({static_cast<uint8_t>(number_at(p, 0, 1)), static_cast<uint8_t>(number_at(p, 1, 1))});
}

std::string acknowledged(Payload p) {
  return "of " + message_name(p);
}

std::string port(Payload p) {
  constexpr std::array<std::string_view, 5> NAMES{"I2C", "UART1", "UART2", "USB", "SPI"};
  const size_t number = number_at(p, 0, 1);
  std::string name = number < NAMES.size() ? std::string(NAMES.at(number)) : std::to_string(number);
  if (p.size() < 20) return name;
  return name + " " + decimal_at(p, 8, 4) + " baud in " + hex_at(p, 12, 2) + " out " + hex_at(p, 14, 2);
}

std::string message_rate(Payload p) {
  constexpr size_t UART1 = 3;  // its rate in the long form
  if (p.size() < 3) return message_name(p);
  const uint32_t rate = number_at(p, p.size() > UART1 ? UART1 : 2, 1);
  return message_name(p) + (rate == 0 ? " off" : " every " + std::to_string(rate));
}

std::string solution_rate(Payload p) {
  return decimal_at(p, 0, 2) + " ms x " + decimal_at(p, 2, 2);
}

std::string saving(Payload p) {
  return "clear " + hex_at(p, 0, 4) + " save " + hex_at(p, 4, 4) + " load " + hex_at(p, 8, 4);
}

std::string reset(Payload p) {
  return "mode " + decimal_at(p, 2, 1);
}

std::string antenna_control(Payload p) {
  return "flags " + hex_at(p, 0, 2) + ((number_at(p, 0, 1) & 1U) != 0 ? " (supply on)" : " (supply off)");
}

std::string systems(Payload p) {
  constexpr std::array<std::string_view, 7> NAMES{"GPS",  "SBAS", "Galileo", "BeiDou",
                                                  "IMES", "QZSS", "GLONASS"};
  std::string text = "enabled";
  for (size_t at = 4; at + 8 <= p.size(); at += 8)
    if ((p[at + 4] & 1U) != 0)
      text += " " + (p[at] < NAMES.size() ? std::string(NAMES.at(p[at])) : std::to_string(p[at]));
  return text;
}

std::string engine(Payload p) {
  return "model " + decimal_at(p, 2, 1) + " fix mode " + decimal_at(p, 3, 1);
}

std::string sentence_format(Payload p) {
  const uint32_t version = number_at(p, 1, 1);
  return "version " + std::to_string(version >> 4U) + "." + std::to_string(version & 0xFU);
}

std::string version(Payload p) {
  std::string text;
  for (size_t i = 0; i < p.size() && i < 30 && p[i] != 0; ++i)
    text += p[i] >= 0x20 && p[i] < 0x7F ? static_cast<char>(p[i]) : '?';
  return '"' + text + '"';
}

std::string hardware(Payload p) {
  constexpr std::array<std::string_view, 5> STATES{"init", "unknown", "OK", "short", "open"};
  const uint32_t status = number_at(p, 20, 1);
  return "antenna " + std::to_string(status) + " (" +
         std::string(status < STATES.size() ? STATES.at(status) : "?") + ") power " + decimal_at(p, 21, 1);
}

std::string monitored_systems(Payload p) {
  return "supported " + hex_at(p, 1, 1) + " enabled " + hex_at(p, 3, 1);
}

std::string utc(Payload p) {
  const auto two = [p](size_t offset) { return zero_padded(number_at(p, offset, 1), 2); };
  return zero_padded(number_at(p, 12, 2), 4) + "-" + two(14) + "-" + two(15) + " " + two(16) + ":" + two(17) +
         ":" + two(18) + " valid " + hex_at(p, 19, 1);
}

std::string standby(Payload p) {
  const size_t at = p.size() >= 16 ? 4 : 0;
  return decimal_at(p, at, 4) + " ms flags " + hex_at(p, at + 4, 4);
}

struct Row {
  UbxId id;
  std::string_view name;
  std::string (*details)(Payload payload);  // nullptr: none
};
constexpr Row ROWS[] = {
    {ubx::NAV_TIMEUTC, "NAV-TIMEUTC", utc},
    {ubx::RXM_PMREQ, "RXM-PMREQ", standby},
    {ubx::ACK_NAK, "ACK-NAK", acknowledged},
    {ubx::ACK_ACK, "ACK-ACK", acknowledged},
    {ubx::CFG_PRT, "CFG-PRT", port},
    {ubx::CFG_MSG, "CFG-MSG", message_rate},
    {ubx::CFG_RST, "CFG-RST", reset},
    {ubx::CFG_RATE, "CFG-RATE", solution_rate},
    {ubx::CFG_CFG, "CFG-CFG", saving},
    {ubx::CFG_RXM, "CFG-RXM", nullptr},
    {ubx::CFG_ANT, "CFG-ANT", antenna_control},
    {ubx::CFG_NMEA, "CFG-NMEA", sentence_format},
    {ubx::CFG_NAV5, "CFG-NAV5", engine},
    {ubx::CFG_GNSS, "CFG-GNSS", systems},
    {ubx::MON_VER, "MON-VER", version},
    {ubx::MON_HW, "MON-HW", hardware},
    {ubx::MON_GNSS, "MON-GNSS", monitored_systems},
};

/// The sentences, by the id of their messages.
constexpr std::array<std::string_view, 9> SENTENCES{"GGA", "GLL", "GSA", "GSV", "RMC",
                                                    "VTG", "GRS", "GST", "ZDA"};

const Row* row_of(UbxId id) {
  for (const Row& row : ROWS)
    if (row.id == id) return &row;
  return nullptr;
}

bool is_poll(const UbxFrame& frame) {
  const size_t size = frame.payload.size();
  return size == 0 || (size == 1 && frame.id == ubx::CFG_PRT) || (size == 2 && frame.id == ubx::CFG_MSG);
}

}  // namespace

std::string name_of(UbxId id) {
  if (const Row* row = row_of(id)) return std::string(row->name);
  if (id.message_class == 0xF0 && id.id < SENTENCES.size()) return std::string(SENTENCES.at(id.id));
  return "0x" + hex(id.message_class, 2) + hex(id.id, 2);
}

std::string describe(const UbxFrame& frame) {
  std::string text = name_of(frame.id);
  if (is_poll(frame)) text += " poll";
  const Row* row = row_of(frame.id);
  if (row != nullptr && row->details != nullptr && !frame.payload.empty())
    text += " " + row->details(frame.payload);
  text += " " + hex(frame.id.message_class, 2) + " " + hex(frame.id.id, 2) + " len " +
          std::to_string(frame.payload.size());
  return frame.payload.empty() ? text : text + ": " + hex_bytes(frame.payload);
}

}  // namespace ecu::koru::sim
