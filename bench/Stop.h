#pragma once

#include <chrono>

/// Waiting that ends when the user ends the program.
namespace bench {

using Clock = std::chrono::steady_clock;

/// From now on SIGINT, SIGTERM and SIGHUP end the program in an orderly way: the functions below throw
/// std::runtime_error, so that everything that was started ends.
void catchStopSignals();

[[nodiscard]] bool isStopped();

/// Throws if there was such a signal.
void checkStop();

/// Throws within 0.1 s of such a signal.
void restUntil(Clock::time_point end);
void rest(Clock::duration time);

}  // namespace bench
