#pragma once

#include <string>

/// Every topic name of the service, once. Strings, because the transport takes strings and a fix allocates
/// nothing.
namespace ecu::koru::topic {

// Published.
inline const std::string GNSS_DATA = "system/gnss/data";
inline const std::string ANTENNA_OPEN_CIRCUIT = "rt/system/status_gnss_antenna_open_circuit";
inline const std::string ANTENNA_SHORT_CIRCUIT = "rt/system/status_gnss_antenna_short_circuit";
inline const std::string MODULE_ERROR = "rt/system/status_gnss_module_error";

// Published by the unit with the receiver, subscribed by all.
inline const std::string GNSS_SOURCE = "system/gnss/source";

// Subscribed.
inline const std::string TIME_ZONE = "system/time/timezone";
inline const std::string BLACKOUT_MODE = "rt/system/blackout_mode";
inline const std::string HW_VERSION = "rt/system/hw_version";
inline const std::string HW_VARIANT = "rt/system/hw_variant";
inline const std::string LOG_CONFIG = "system/gnss/log_config";

// Changes of system parameters, subscribed.
inline const std::string PARAMETER_GNSS_ON = "system/sysparam/0x0000A00F";
inline const std::string PARAMETER_GPS = "system/sysparam/0x0000A01F";
inline const std::string PARAMETER_GLONASS = "system/sysparam/0x0000A020";
inline const std::string PARAMETER_GALILEO = "system/sysparam/0x0000A021";
inline const std::string PARAMETER_BEIDOU = "system/sysparam/0x0000A022";
inline const std::string PARAMETER_ANTENNA_ON = "system/sysparam/0x0000A060";

// Read once at start (retained).
inline const std::string VARIABLE_PREFIX = "system/var/";
inline const std::string SYSTEM_PARAMETERS = "system/sysparams";

}  // namespace ecu::koru::topic
