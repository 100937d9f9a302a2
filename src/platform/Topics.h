#pragma once

#include <string>

/// Every topic name of the service, once. Strings, because the transport takes strings and a fix allocates
/// nothing.
namespace ecu::koru::topic {

// Published.
inline const std::string GNSS_DATA = "system/gnss/data";

// Subscribed.
inline const std::string TIME_ZONE = "system/time/timezone";

// Read once at start (retained).
inline const std::string VARIABLE_PREFIX = "system/var/";
inline const std::string SYSTEM_PARAMETERS = "system/sysparams";

}  // namespace ecu::koru::topic
