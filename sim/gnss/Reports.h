#pragma once

#include "sim/gnss/Antenna.h"
#include "sim/gnss/ConfigMessages.h"
#include "sim/gnss/Fix.h"
#include "sim/gnss/UbxFrame.h"

namespace ecu::koru::sim {

/// MON-VER with four extension texts. `newer`: of the following generation.
[[nodiscard]] UbxFrame version_report(bool newer);
/// MON-HW.
[[nodiscard]] UbxFrame hardware_report(const AntennaReport& antenna);
/// MON-GNSS; systems are bits: GPS, GLONASS, BeiDou, Galileo.
[[nodiscard]] UbxFrame systems_report(const Capabilities& capabilities, uint8_t by_default, uint8_t enabled);
/// NAV-TIMEUTC; without a fix the time is the clock's and marked as not valid.
[[nodiscard]] UbxFrame time_report(const Fix& fix);

}  // namespace ecu::koru::sim
