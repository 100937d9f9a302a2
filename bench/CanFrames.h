#pragma once

#include <ctime>

#include "platform/com/Transport.h"

namespace bench {

/// Sends the five signal groups of a dated fix as another unit does, to a service without a receiver. Throws
/// std::runtime_error if the bus does not take them.
void sendCanFrames(ecu::koru::com::ITransportClient& bus, std::time_t utc);

}  // namespace bench
