#pragma once

#include <string>

/// All topic names of the service. They are std::string objects because the transport takes such objects, and
/// making one for each message would allocate.
namespace ecu::koru::topic {

// Published.
inline const std::string GNSS_DATA = "system/gnss/data";
inline const std::string GNSS_HEALTH = "system/gnss/health";  // the one that the package configures
inline const std::string ANTENNA_OPEN_CIRCUIT = "rt/system/status_gnss_antenna_open_circuit";
inline const std::string ANTENNA_SHORT_CIRCUIT = "rt/system/status_gnss_antenna_short_circuit";
inline const std::string MODULE_ERROR = "rt/system/status_gnss_module_error";

inline const std::string GNSS_TIMESTAMP = "rt/system/gnss_timestamp_ns";
inline const std::string SYSTIME_TD = "systime/td";

// Signal groups on the vehicle's buses, published by a unit with a receiver.
inline const std::string VP1_TX = "rt/j1939can/tx/vp1_local";
inline const std::string VP2_TX = "rt/j1939can/tx/vp2_local";
inline const std::string VDS_TX = "rt/j1939can/tx/vds_local";
inline const std::string TD_TX = "rt/j1939can/tx/td_local";
inline const std::string P2C1_TX = "rt/oemcan/tx/p2c1_local";

// The same groups from another unit, subscribed by a unit without one.
inline const std::string VP1_RX = "rt/j1939can/rx/vp1_fb";
inline const std::string VP2_RX = "rt/j1939can/rx/vp2_fb";
inline const std::string VDS_RX = "rt/j1939can/rx/vds_fb";
inline const std::string TD_RX = "rt/j1939can/rx/td_fb";
inline const std::string P2C1_RX = "rt/oemcan/rx/p2c1_fb";

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
