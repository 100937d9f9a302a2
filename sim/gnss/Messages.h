#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "sim/gnss/Sentences.h"
#include "sim/gnss/UbxFrame.h"

namespace ecu::koru::sim {

namespace ubx {
inline constexpr UbxId NAV_TIMEUTC{0x01, 0x21};
inline constexpr UbxId RXM_PMREQ{0x02, 0x41};
inline constexpr UbxId ACK_NAK{0x05, 0x00};
inline constexpr UbxId ACK_ACK{0x05, 0x01};
inline constexpr UbxId CFG_PRT{0x06, 0x00};
inline constexpr UbxId CFG_MSG{0x06, 0x01};
inline constexpr UbxId CFG_RST{0x06, 0x04};
inline constexpr UbxId CFG_RATE{0x06, 0x08};
inline constexpr UbxId CFG_CFG{0x06, 0x09};
inline constexpr UbxId CFG_RXM{0x06, 0x11};
inline constexpr UbxId CFG_ANT{0x06, 0x13};
inline constexpr UbxId CFG_NMEA{0x06, 0x17};
inline constexpr UbxId CFG_NAV5{0x06, 0x24};
inline constexpr UbxId CFG_GNSS{0x06, 0x3E};
inline constexpr UbxId MON_VER{0x0A, 0x04};
inline constexpr UbxId MON_HW{0x0A, 0x09};
inline constexpr UbxId MON_GNSS{0x0A, 0x28};
}  // namespace ubx

/// A message that is sent without a request at every n-th solution. `sentence` is empty for UBX messages.
struct PeriodicMessage {
  UbxId id;
  std::optional<Sentence> sentence;
};

/// Has the same index as the rates in the settings.
inline constexpr std::array<PeriodicMessage, 11> PERIODIC_MESSAGES{{{{0xF0, 0x00}, Sentence::gga},
                                                                    {{0xF0, 0x01}, Sentence::gll},
                                                                    {{0xF0, 0x02}, Sentence::gsa},
                                                                    {{0xF0, 0x03}, Sentence::gsv},
                                                                    {{0xF0, 0x04}, Sentence::rmc},
                                                                    {{0xF0, 0x05}, Sentence::vtg},
                                                                    {{0xF0, 0x06}, Sentence::grs},
                                                                    {{0xF0, 0x07}, Sentence::gst},
                                                                    {{0xF0, 0x08}, Sentence::zda},
                                                                    {ubx::NAV_TIMEUTC, std::nullopt},
                                                                    {ubx::MON_HW, std::nullopt}}};

/// Returns the message's index in the table; empty if this receiver does not have the message.
[[nodiscard]] constexpr std::optional<size_t> periodic_index(UbxId id) {
  for (size_t i = 0; i < PERIODIC_MESSAGES.size(); ++i)
    if (PERIODIC_MESSAGES[i].id == id) return i;
  return std::nullopt;
}

}  // namespace ecu::koru::sim
