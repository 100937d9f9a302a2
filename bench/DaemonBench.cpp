// Measures the running service: a fix's delay and processor time, and the memory in use.

#include <mosquittopp.h>

#include <array>
#include <atomic>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <iostream>
#include <string>

#include "bench/DaemonRun.h"
#include "tools/common/Options.h"

namespace {

constexpr std::array<bench::DaemonRate, 3> RATES{{{1, 38400}, {4, 38400}, {10, 115200}}};

/// Returns the smallest value that at least the share (above 0) of all values does not exceed.
double quantile(const std::vector<double>& ascending, double share) {
  const auto index = static_cast<size_t>(std::ceil(share * static_cast<double>(ascending.size()))) - 1;
  return ascending[index];
}

double mib(int64_t kib) {
  return static_cast<double>(kib) / 1024;
}

std::string loadAverage() {
  std::string load;
  std::ifstream("/proc/loadavg") >> load;
  return load;
}

void printHead(int seconds) {
  std::printf("satnavd behind gnss-sim, %d s at each rate; load of the machine %s\n\n", seconds,
              loadAverage().c_str());
  std::printf("%-15s %11s   %-31s   %-21s   %s\n", "", "", "last byte of GST to subscriber", "per fix",
              "memory, MiB");
  std::printf("%-15s %11s   %7s %7s %7s %7s   %12s %8s   %8s %7s %6s\n", "rate", "fixes", "min ms", "median",
              "99 %", "max", "processor us", "wake-ups", "resident", "private", "peak");
}

void printRow(const bench::DaemonRate& rate, const bench::DaemonResult& result) {
  const auto& delays = result.delays_ms;
  std::printf("%2d Hz %6u bd %5zu/%-5zu   %7.2f %7.2f %7.2f %7.2f   %12.1f %8.1f   %8.2f %7.2f %6.2f\n",
              rate.hz, rate.baud, delays.size(), result.driven, delays.front(), quantile(delays, 0.5),
              quantile(delays, 0.99), delays.back(), result.processor_us, result.wake_ups,
              mib(result.end.resident_kib), mib(result.end.private_kib), mib(result.end.peak_kib));
  (void)std::fflush(stdout);
}

void printAims() {
  std::printf("%-15s %11s   %7s %7s %7.2f %7s   %12.1f %8s   %8.2f\n\n", "aim", "all", "", "", 10.0, "",
              200.0, "", 8.0);
  std::printf("A thread that does nothing but sleep costs %.1f us a wake-up on this machine at present.\n",
              bench::wakeUpCost_us());
}

/// Set by the signals that end the measurement and everything it started.
std::atomic<bool>& stopCell() {
  static std::atomic<bool> cell{false};
  return cell;
}

void measureAll(int seconds) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP})
    (void)std::signal(signal, [](int) { stopCell() = true; });
  printHead(seconds);
  for (const auto& rate : RATES) printRow(rate, bench::measureDaemon(rate, seconds, stopCell()));
  printAims();
}

}  // namespace

int main(int argc, char** argv) {
  int seconds = 25;
  CLI::App app("Measures the service of this build against a simulated receiver at 1, 4 and 10 Hz.",
               "satnavd_daemon_bench");
  app.add_option("--seconds", seconds, "How long at each rate")
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
    std::cerr << "satnavd_daemon_bench: " << error.what() << '\n';
  }
  mosqpp::lib_cleanup();
  return status;
}
