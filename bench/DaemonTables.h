#pragma once

namespace bench {

/// Measure the service for `seconds` in each case and write a table to standard output, a row at a time.
/// Throw like ServiceRun.

/// Delay, load and memory behind the simulated receiver's program at several rates.
void printRates(int seconds);

/// Load with and without a fix: one feed at 1 Hz in one piece, in pieces and silent, with a peer beside the
/// service if `with_peer`; then the states without a receiver.
void printLoads(int seconds, bool with_peer);

/// How soon the service reacts in each of its states, and how late what its time-outs trigger leaves. Takes
/// the time that it needs.
void printReactions();

}  // namespace bench
