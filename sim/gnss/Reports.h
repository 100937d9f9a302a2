#pragma once

#include "sim/gnss/Antenna.h"
#include "sim/gnss/ConfigMessages.h"
#include "sim/gnss/Fix.h"
#include "sim/gnss/UbxFrame.h"

namespace ecu::koru::sim {

/// Returns MON-VER with four extension texts. `newer`: that of the next generation.
[[nodiscard]] UbxFrame version_report(bool newer);
[[nodiscard]] UbxFrame hardware_report(const AntennaReport& antenna);
/// Returns MON-GNSS. The bits of the systems are, from bit 0: GPS, GLONASS, BeiDou, Galileo.
[[nodiscard]] UbxFrame systems_report(const Capabilities& capabilities, uint8_t by_default, uint8_t enabled);
/// Returns NAV-TIMEUTC. Without a fix it holds the receiver's own time, marked as not valid.
[[nodiscard]] UbxFrame time_report(const Fix& fix);

}  // namespace ecu::koru::sim
