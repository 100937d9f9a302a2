#pragma once

#include "platform/com/Transport.h"

namespace ecu::koru::gpspub {

// The antenna status codes of this unit.
inline constexpr unsigned ANTENNA_OK = 2;
inline constexpr unsigned ANTENNA_SHORT = 3;
inline constexpr unsigned ANTENNA_OPEN = 4;

// The signals of antenna and module are one byte each, 01 for true and 00 for false. Service thread only.

/// Publishes "status_gnss_antenna_open_circuit" and "..._short_circuit". Ignores a status that is not one of
/// the codes.
void publishAntennaMessage(com::ITransportClient& client, unsigned status, unsigned power);
/// Publishes "status_gnss_module_error".
void publishModuleErrorMessage(com::ITransportClient& client, bool error);

}  // namespace ecu::koru::gpspub
