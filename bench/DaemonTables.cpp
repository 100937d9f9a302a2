#include "bench/DaemonTables.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "bench/DaemonRun.h"
#include "bench/ProcessFigures.h"

namespace bench {

namespace {

constexpr std::array<DaemonRate, 3> RATES{{{1, 38400}, {4, 38400}, {10, 115200}}};

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

void printRatesHead(int seconds) {
  std::printf("satnavd behind gnss-sim, %d s at each rate; load of the machine %s\n\n", seconds,
              loadAverage().c_str());
  std::printf("%-15s %11s   %-31s   %-21s   %s\n", "", "", "last byte of GST to subscriber", "per fix",
              "memory, MiB");
  std::printf("%-15s %11s   %7s %7s %7s %7s   %12s %8s   %8s %7s %6s\n", "rate", "fixes", "min ms", "median",
              "99 %", "max", "processor us", "wake-ups", "resident", "private", "peak");
}

void printRate(const DaemonRate& rate, const DaemonResult& result) {
  const auto& delays = result.delays_ms;
  std::printf("%2d Hz %6u bd %5zu/%-5zu   %7.2f %7.2f %7.2f %7.2f   %12.1f %8.1f   %8.2f %7.2f %6.2f\n",
              rate.hz, rate.baud, delays.size(), result.driven, delays.front(), quantile(delays, 0.5),
              quantile(delays, 0.99), delays.back(), result.per_fix.processor_us, result.per_fix.wake_ups,
              mib(result.end.resident_kib), mib(result.end.private_kib), mib(result.end.peak_kib));
  (void)std::fflush(stdout);
}

void printAims() {
  std::printf("%-15s %11s   %7s %7s %7.2f %7s   %12.1f %8s   %8.2f\n\n", "aim", "all", "", "", 10.0, "",
              200.0, "", 8.0);
  std::printf("A thread that does nothing but sleep costs %.1f us a wake-up on this machine at present.\n",
              wakeUpCost_us());
}

}  // namespace

void printRates(int seconds) {
  printRatesHead(seconds);
  for (const auto& rate : RATES) printRate(rate, measureDaemon(rate, seconds));
  printAims();
}

}  // namespace bench
