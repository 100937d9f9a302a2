#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "sim/gnss/Sentences.h"
#include "sim/gnss/UbxFrame.h"

namespace ecu::koru::sim {

namespace ubx {
inline constexpr UbxId nav_timeutc{0x01, 0x21};
inline constexpr UbxId rxm_pmreq{0x02, 0x41};
inline constexpr UbxId ack_nak{0x05, 0x00};
inline constexpr UbxId ack_ack{0x05, 0x01};
inline constexpr UbxId cfg_prt{0x06, 0x00};
inline constexpr UbxId cfg_msg{0x06, 0x01};
inline constexpr UbxId cfg_rst{0x06, 0x04};
inline constexpr UbxId cfg_rate{0x06, 0x08};
inline constexpr UbxId cfg_cfg{0x06, 0x09};
inline constexpr UbxId cfg_rxm{0x06, 0x11};
inline constexpr UbxId cfg_ant{0x06, 0x13};
inline constexpr UbxId cfg_nmea{0x06, 0x17};
inline constexpr UbxId cfg_nav5{0x06, 0x24};
inline constexpr UbxId cfg_gnss{0x06, 0x3E};
inline constexpr UbxId mon_ver{0x0A, 0x04};
inline constexpr UbxId mon_hw{0x0A, 0x09};
inline constexpr UbxId mon_gnss{0x0A, 0x28};
}  // namespace ubx

/// A message that is sent without a request at every n-th solution. `sentence` is empty for UBX messages.
struct PeriodicMessage {
  UbxId id;
  std::optional<Sentence> sentence;
};

/// Has the same index as the rates in the settings.
inline constexpr std::array<PeriodicMessage, 11> periodic_messages{{{{0xF0, 0x00}, Sentence::gga},
                                                                    {{0xF0, 0x01}, Sentence::gll},
                                                                    {{0xF0, 0x02}, Sentence::gsa},
                                                                    {{0xF0, 0x03}, Sentence::gsv},
                                                                    {{0xF0, 0x04}, Sentence::rmc},
                                                                    {{0xF0, 0x05}, Sentence::vtg},
                                                                    {{0xF0, 0x06}, Sentence::grs},
                                                                    {{0xF0, 0x07}, Sentence::gst},
                                                                    {{0xF0, 0x08}, Sentence::zda},
                                                                    {ubx::nav_timeutc, std::nullopt},
                                                                    {ubx::mon_hw, std::nullopt}}};

/// Returns the message's index in the table; empty if this receiver does not have the message.
[[nodiscard]] constexpr std::optional<size_t> periodic_index(UbxId id) {
  for (size_t i = 0; i < periodic_messages.size(); ++i)
    if (periodic_messages[i].id == id) return i;
  return std::nullopt;
}

}  // namespace ecu::koru::sim
