#pragma once

#include <time.h>

#include <cstdint>

#include "sim/gnss/Descriptor.h"

/// The machine's clocks and signals, for sessions that run on them.
namespace ecu::koru::sim {

[[nodiscard]] int64_t clock_ns(clockid_t clock);

/// Returns the steady clock, us.
[[nodiscard]] int64_t now_us();

/// Blocks the signals that end the program: SIGINT, SIGTERM and SIGHUP. The descriptor becomes readable after
/// one of them.
[[nodiscard]] Descriptor block_signals();

}  // namespace ecu::koru::sim
