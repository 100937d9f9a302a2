// Measures the running service: a fix's delay, processor time and wake-ups with and without fixes, memory,
// gpsd beside it, and how soon the service reacts.

#include <mosquittopp.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>

#include "bench/DaemonTables.h"
#include "bench/Gpsd.h"
#include "bench/Stop.h"
#include "tools/common/Options.h"

namespace {

void measureAll(int seconds) {
  bench::catchStopSignals();
  bench::printRates(seconds);
  bench::printLoads(seconds, bench::Gpsd::isInstalled());
  bench::printReactions();
  if (!bench::Gpsd::isInstalled())
    std::printf(
        "\ngpsd is not installed: scripts/bench --peer installs it and measures it beside satnavd.\n");
}

}  // namespace

int main(int argc, char** argv) {
  int seconds = 25;
  CLI::App app(
      "Measures the service of this build against a simulated receiver at 1, 4 and 10 Hz, on a feed beside "
      "gpsd "
      "if that is installed, and without a receiver.",
      "satnavd_daemon_bench");
  app.add_option("--seconds", seconds, "How long in each case")
      ->check(CLI::Range(2, 3600))
      ->capture_default_str();
  if (const auto status = ecu::koru::tool::parse_options(app, argc, argv)) return *status;
  mosqpp::lib_init();
  int status = EXIT_FAILURE;
  try {
    measureAll(seconds);
    status = EXIT_SUCCESS;
  } catch (const std::exception& error) {
    (void)std::fflush(stdout);
    // Ctrl-C also ends the other processes, and what fails first for lack of them says nothing.
    std::cerr << "satnavd_daemon_bench: " << (bench::isStopped() ? "stopped by a signal" : error.what())
              << '\n';
  }
  mosqpp::lib_cleanup();
  return status;
}
