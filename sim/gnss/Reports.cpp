#include "sim/gnss/Reports.h"

#include <algorithm>
#include <string_view>

#include "sim/gnss/Messages.h"
#include "sim/gnss/Utc.h"

namespace ecu::koru::sim {
namespace {

/// Writes a text at `offset`. The rest of its field must hold NULs already.
void put_text(std::vector<uint8_t>& payload, size_t offset, std::string_view text) {
  std::copy(text.begin(), text.end(), payload.begin() + static_cast<std::ptrdiff_t>(offset));
}

}  // namespace

UbxFrame version_report(bool newer) {
  constexpr size_t SOFTWARE = 30, HARDWARE = 10, EXTENSION = 30;
  constexpr std::array<std::string_view, 4> OF_THIS{"FWVER=SPG 3.01", "PROTVER=18.00", "GPS;GLO;GAL;BDS",
                                                    "SBAS;IMES;QZSS"};
  constexpr std::array<std::string_view, 4> OF_NEXT{"FWVER=SPG 4.04", "PROTVER=32.01", "GPS;GLO;GAL;BDS",
                                                    "SBAS;QZSS"};
  std::vector<uint8_t> payload(SOFTWARE + HARDWARE + EXTENSION * OF_THIS.size());
  put_text(payload, 0, newer ? "EXT CORE 4.04 (7f89f7)" : "ROM CORE 3.01 (107888)");
  put_text(payload, SOFTWARE, newer ? "00190000" : "00080000");
  for (size_t i = 0; i < OF_THIS.size(); ++i)
    put_text(payload, SOFTWARE + HARDWARE + EXTENSION * i, newer ? OF_NEXT[i] : OF_THIS[i]);
  return {ubx::MON_VER, payload};
}

UbxFrame hardware_report(const AntennaReport& antenna) {
  std::vector<uint8_t> payload(60);
  put_number(payload, 0, 4, 0x0001F40F);  // pins: select, then bank, direction and level
  put_number(payload, 8, 4, 0x00010000);
  put_number(payload, 12, 4, 0x0000EF4B);
  put_number(payload, 16, 2, 84);    // noise
  put_number(payload, 18, 2, 4210);  // gain control
  payload[20] = antenna.status;
  payload[21] = antenna.power;
  payload[22] = 0x01;                      // flags: the real-time clock is calibrated
  put_number(payload, 24, 4, 0x0001EBFF);  // virtual pins
  for (uint8_t i = 0; i < 17; ++i) payload[28U + i] = i;
  payload[45] = 7;  // jamming
  put_number(payload, 52, 4, 0x0000FC7F);
  return {ubx::MON_HW, payload};
}

UbxFrame systems_report(const Capabilities& capabilities, uint8_t by_default, uint8_t enabled) {
  constexpr uint8_t VERSION = 1;
  return {ubx::MON_GNSS,
          {VERSION, capabilities.supported_systems, by_default, enabled, capabilities.simultaneous, 0, 0, 0}};
}

UbxFrame time_report(const Fix& fix) {
  constexpr int64_t GPS_EPOCH_US = 315'964'800 * SECOND_US;
  constexpr int64_t LEAP_US = 18 * SECOND_US, WEEK_US = 604'800 * SECOND_US;
  constexpr uint32_t UNKNOWN = 0xFFFFFFFF;
  constexpr uint8_t ALL_VALID = 0x37;  // time of week, week and UTC, the standard of the USNO
  const CivilTime t = civil_time(fix.utc_us);
  std::vector<uint8_t> payload(20);
  const int64_t since_week_us = std::max<int64_t>(0, fix.utc_us - GPS_EPOCH_US + LEAP_US) % WEEK_US;
  put_number(payload, 0, 4, static_cast<uint32_t>(since_week_us / 1000));
  put_number(payload, 4, 4, fix.valid ? 25 : UNKNOWN);
  put_number(payload, 8, 4, t.microsecond * 1000);
  put_number(payload, 12, 2, static_cast<uint32_t>(t.year));
  for (size_t i = 0; const unsigned value : {t.month, t.day, t.hour, t.minute, t.second})
    payload[14 + i++] = static_cast<uint8_t>(value);
  payload[19] = fix.valid ? ALL_VALID : 0;
  return {ubx::NAV_TIMEUTC, payload};
}

}  // namespace ecu::koru::sim
