#pragma once

#include <string>

#include "nmea/GnssInfo.h"
#include "platform/com/Transport.h"

namespace ecu::koru::gpspub::GnssUtils {

/// UTC and offset to local time as the time/date group (PGN 65254) that has this topic. All signals are not
/// available without a dated fix. Returns false, and logs it, if there is no such group.
[[nodiscard]] bool create_Timedate_Var6_Message(const std::string& topic, const GnssInfo& info,
                                                com::Message& out);

}  // namespace ecu::koru::gpspub::GnssUtils
