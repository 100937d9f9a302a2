#pragma once

namespace bench {

/// Measures delay, load and memory of the service behind the simulated receiver for `seconds` at each of several
/// rates, and writes a table to standard output, a row at a time. Throws like ServiceRun.
void printRates(int seconds);

}  // namespace bench
