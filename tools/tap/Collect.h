#pragma once

#include "tools/tap/Decode.h"
#include "tools/tap/Statistics.h"

namespace ecu::koru::tap {

/// Decodes a message and adds it to the statistics. Of a retained message, which is old, only whether it can
/// be decoded counts.
void collect(const Arrival& arrival, Statistics& statistics);

}  // namespace ecu::koru::tap
