#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "wire/UbxFrame.h"

namespace ecu::koru::gpspub {

/// One command to the receiver: a name for the reader, class, id, checksum and payload (none for a poll).
///
/// The stored checksum need not be right: it is rewritten just before the frame is sent.
struct UbxCommand {
  static constexpr size_t MAX_PAYLOAD = 36;

  template <typename... Bytes>
  constexpr UbxCommand(std::string_view command_name, uint8_t command_class, uint8_t command_id,
                       ubx::Checksum stored_checksum, Bytes... bytes)
      : name(command_name),
        cls(command_class),
        id(command_id),
        stored(stored_checksum),
        length(sizeof...(bytes)),
        payload{static_cast<uint8_t>(bytes)...} {
    static_assert(sizeof...(bytes) <= MAX_PAYLOAD);
  }

  [[nodiscard]] std::string frame() const {
    return ubx::frame(cls, id, std::span(payload).first(length), stored);
  }

  std::string_view name;
  uint8_t cls;
  uint8_t id;
  ubx::Checksum stored;
  size_t length;
  std::array<uint8_t, MAX_PAYLOAD> payload;
};

namespace ubx {

/// The stored checksum of a command that has none of its own.
inline constexpr Checksum PLACEHOLDER{0xFF, 0xFF};

/// CFG-PRT for UART 1: mode 8N1, input UBX, NMEA and RTCM, output UBX and NMEA, baud rate in bytes 8 to 11.
constexpr UbxCommand configureBaudrate(std::string_view name, uint32_t baud) {
  // clang-format off
  UbxCommand command{name, CFG, CFG_PRT, {0x92, 0xB5},
      0x01, 0x00, 0x00, 0x00,  0xC0, 0x08, 0x00, 0x00,  0x00, 0x00, 0x00, 0x00,
      0x07, 0x00,  0x03, 0x00,  0x00, 0x00, 0x00, 0x00};
  // clang-format on
  store(command.payload, 8, baud);
  return command;
}

/// CFG-MSG: one message every `rate` solutions on UART 1 and SPI. With 0 it is off on all ports.
constexpr UbxCommand messageRate(std::string_view name, uint8_t cls, uint8_t id, uint8_t rate,
                                 Checksum stored = PLACEHOLDER) {
  //                                          I2C   UART 1 UART 2 USB   SPI  reserved
  return {name, CFG, CFG_MSG, stored, cls, id, 0x00, rate, 0x00, 0x00, rate, 0x00};
}

inline constexpr uint8_t NMEA_STANDARD = 0xF0;  // class of the standard NMEA sentences

// clang-format off
inline constexpr UbxCommand PORT_POLL    {"CFG-PRT poll",  CFG, CFG_PRT,  {0x06, 0x18}};
inline constexpr UbxCommand ANTENNA_POLL {"CFG-ANT poll",  CFG, CFG_ANT,  PLACEHOLDER};
inline constexpr UbxCommand GNSS_POLL    {"CFG-GNSS poll", CFG, CFG_GNSS, {0xFF, 0xFF}};
inline constexpr UbxCommand MON_GNSS_POLL{"MON-GNSS poll", MON, MON_GNSS, {0x25, 0xED}};
inline constexpr UbxCommand VERSION_POLL {"MON-VER poll",  MON, MON_VER,  {0x25, 0xED}};

/// clearMask 0, saveMask all sections but the antenna's (bit 10), loadMask 0, deviceMask battery-backed RAM, flash, EEPROM.
inline constexpr UbxCommand SAVE_CONFIGURATION{"CFG-CFG save", CFG, CFG_CFG, {0x1F, 0xA2},
    0x00, 0x00, 0x00, 0x00,  0xFF, 0xFB, 0xFF, 0xFF,  0x00, 0x00, 0x00, 0x00,  0x07};
/// The same for the antenna section alone.
inline constexpr UbxCommand SAVE_ANTENNA_CONFIG{"CFG-CFG save antenna", CFG, CFG_CFG, {0x1F, 0xA2},
    0x00, 0x00, 0x00, 0x00,  0x00, 0x04, 0x00, 0x00,  0x00, 0x00, 0x00, 0x00,  0x07};
/// measRate 1000 ms (bytes 0 and 1), navRate 1, timeRef GPS.
inline constexpr UbxCommand NAVIGATION_RATE{"CFG-RATE", CFG, CFG_RATE, {0x25, 0xED},
    0xE8, 0x03,  0x01, 0x00,  0x01, 0x00};

/// Flags: short-circuit detection, open-circuit detection, power down on short circuit; supply control off.
inline constexpr UbxCommand DISABLE_ANTENNA_POWER {"CFG-ANT off",   CFG, CFG_ANT, {0xFF, 0xFF},  0x0E, 0x00,  0xF0, 0xB9};
inline constexpr UbxCommand DISABLE_ANTENNA_POWER2{"CFG-ANT clear", CFG, CFG_ANT, {0xFF, 0xFF},  0x00, 0x00,  0x00, 0x00};
/// Flags: as above with supply control on, and automatic recovery.
inline constexpr UbxCommand ENABLE_ANTENNA_POWER  {"CFG-ANT on",    CFG, CFG_ANT, {0xE5, 0xE2},  0x1F, 0x00,  0xF0, 0xB9};

inline constexpr UbxCommand BAUDRATE_9600   = configureBaudrate("CFG-PRT 9600", 9600);
inline constexpr UbxCommand BAUDRATE_19200  = configureBaudrate("CFG-PRT 19200", 19200);
inline constexpr UbxCommand BAUDRATE_38400  = configureBaudrate("CFG-PRT 38400", 38400);
inline constexpr UbxCommand BAUDRATE_57600  = configureBaudrate("CFG-PRT 57600", 57600);
inline constexpr UbxCommand BAUDRATE_115200 = configureBaudrate("CFG-PRT 115200", 115200);

/// version 0, duration indefinite, flags backup and force, no wake-up sources.
inline constexpr UbxCommand RECEIVER_STANDBY{"RXM-PMREQ standby", RXM, RXM_PMREQ, {0x59, 0x4B},
    0x00, 0x00, 0x00, 0x00,  0x00, 0x00, 0x00, 0x00,  0x06, 0x00, 0x00, 0x00,  0x00, 0x00, 0x00, 0x00};
/// navBbrMask hot start, resetMode controlled GNSS stop.
inline constexpr UbxCommand GNSS_STOP{"CFG-RST stop", CFG, CFG_RST, {0x16, 0x74},  0x00, 0x00,  0x08,  0x00};

/// The list m_init_commands, sent in this order whenever the receiver is configured.
inline constexpr std::array INIT_COMMANDS{
    PORT_POLL,      // the port and its rate
    PORT_POLL,      // again, after a change of rate
    MON_GNSS_POLL,  // capabilities
    ANTENNA_POLL,   // three passes: each decides from the antenna's state
    ANTENNA_POLL,
    ANTENNA_POLL,
    messageRate("NAV-TIMEUTC on", NAV, NAV_TIMEUTC, 1),
    messageRate("GSA on",  NMEA_STANDARD, 0x02, 1),
    messageRate("GSV on",  NMEA_STANDARD, 0x03, 1),
    messageRate("RMC on",  NMEA_STANDARD, 0x04, 1),
    messageRate("GST on",  NMEA_STANDARD, 0x07, 1),
    messageRate("VTG off", NMEA_STANDARD, 0x05, 0),
    messageRate("GRS off", NMEA_STANDARD, 0x06, 0),
    messageRate("ZDA off", NMEA_STANDARD, 0x08, 0),
    messageRate("GLL off", NMEA_STANDARD, 0x01, 0),
    messageRate("MON-HW every 5th", MON, MON_HW, 5),
    GNSS_POLL,
    UbxCommand{"CFG-RXM continuous", CFG, CFG_RXM, PLACEHOLDER,  0x00, 0x00},
    // mask all, automotive, 2D/3D; fixed altitude 500.00 m and variance 0.5 m2; elevation 5 deg, dead reckoning 60 s;
    // PDOP and TDOP 25.0; position accuracy 100 m, time accuracy 300 m; static hold 50 cm/s; the rest 0.
    UbxCommand{"CFG-NAV5", CFG, CFG_NAV5, PLACEHOLDER,
        0xFF, 0xFF,  0x04,  0x03,  0x50, 0xC3, 0x00, 0x00,  0x88, 0x13, 0x00, 0x00,  0x05,  0x3C,
        0xFA, 0x00,  0xFA, 0x00,   0x64, 0x00,  0x2C, 0x01,  0x32,  0x00,
        0x00, 0x00, 0x00, 0x00,    0x00, 0x00, 0x00, 0x00,   0x00, 0x00, 0x00, 0x00},
    messageRate("GGA on", NMEA_STANDARD, 0x00, 1, {0xFE, 0x18}),
    // filter, NMEA 4.0, satellites unlimited, flags consider mode; version 1; the rest 0.
    UbxCommand{"CFG-NMEA", CFG, CFG_NMEA, {0xFF, 0xFF},
        0x0F,  0x40,  0x00,  0x02,  0x00, 0x00, 0x00, 0x00,  0x00, 0x00, 0x00, 0x01,
        0x00, 0x00, 0x00, 0x00,  0x00, 0x00, 0x00, 0x00},
    VERSION_POLL,
};
// clang-format on

}  // namespace ubx

}  // namespace ecu::koru::gpspub
