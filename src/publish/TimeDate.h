#pragma once

#include <string>

#include "nmea/GnssInfo.h"
#include "platform/com/Transport.h"

namespace ecu::koru::gpspub::GnssUtils {

/// Packs UTC and the offset to local time into the time/date group (PGN 65254) of this topic. Without a dated
/// fix all signals are "not available". Logs and returns false if the group cannot be made.
[[nodiscard]] bool create_Timedate_Var6_Message(const std::string& topic, const GnssInfo& info,
                                                com::Message& out);

}  // namespace ecu::koru::gpspub::GnssUtils
