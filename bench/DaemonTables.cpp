#include "bench/DaemonTables.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "bench/DaemonRun.h"
#include "bench/FeedRun.h"
#include "bench/IdleRun.h"

namespace bench {

namespace {

constexpr std::array<DaemonRate, 3> RATES{{{1, 38400}, {4, 38400}, {10, 115200}}};

struct FeedRow {
  const char* name;
  Feeding feeding;
};
constexpr std::array<FeedRow, 3> FEEDS{{{"per fix, epoch in one piece", Feeding::ONE_PIECE},
                                        {"per fix, 16 bytes a piece", Feeding::PIECES},
                                        {"per second, silent line", Feeding::SILENT}}};

const std::vector<IdleState>& idleStates() {
  static const std::vector<IdleState> states{
      {"CAN input, frames once a second", {"--var", "hasgnss=false"}, true},
      {"CAN input, no frames", {"--var", "hasgnss=false"}},
      {"GNSS switched off", {"--var", "hwversion=zpt", "--param", "0xA00F=00"}},
      {"no device", {"--var", "hwversion=zpt"}}};
  return states;
}

/// Returns the smallest value that at least the share (above 0) of all values does not exceed.
double quantile(const std::vector<double>& ascending, double share) {
  const auto index = static_cast<size_t>(std::ceil(share * static_cast<double>(ascending.size()))) - 1;
  return ascending[index];
}

double mib(int64_t kib) {
  return static_cast<double>(kib) / 1024;
}

// -- Behind the simulated receiver

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

// -- On one feed with the peer

void printFeedsHead(int seconds, const std::string& peer) {
  std::printf("\nsatnavd%s on one feed at 1 Hz, %u bd, %d s each; load of the machine %s\n\n",
              peer.empty() ? "" : (" and " + peer).c_str(), Feed::BAUD, seconds, loadAverage().c_str());
  std::printf("%-32s   %-27s", "", "satnavd");
  if (!peer.empty()) std::printf("   %-27s   %s", peer.c_str(), "satnavd / gpsd");
  std::printf("\n%-32s   %5s %12s %8s", "", "fixes", "processor us", "wake-ups");
  if (!peer.empty())
    std::printf("   %5s %12s %8s   %9s %8s", "fixes", "processor us", "wake-ups", "processor", "wake-ups");
  std::printf("\n");
}

void printResult(const FeedResult& result) {
  std::printf("   %5zu %12.1f %8.1f", result.fixes, result.load.processor_us, result.load.wake_ups);
}

/// Shows nothing if the divisor is so small that it was measured as none.
std::string quotient(double dividend, double divisor) {
  std::array<char, 32> text{"-"};
  if (divisor > 0) (void)std::snprintf(text.data(), text.size(), "%.2f", dividend / divisor);
  return text.data();
}

void printFeed(const char* name, const FeedResults& results) {
  std::printf("%-32s", name);
  printResult(results.service);
  if (results.peer) {
    const Load& service = results.service.load;
    const Load& peer = results.peer->load;
    printResult(*results.peer);
    std::printf("   %9s %8s", quotient(service.processor_us, peer.processor_us).c_str(),
                quotient(service.wake_ups, peer.wake_ups).c_str());
  }
  std::printf("\n");
  (void)std::fflush(stdout);
}

void printFeeds(int seconds, bool with_peer) {
  FeedRun run(with_peer);
  bool is_first = true;
  for (const auto& [name, feeding] : FEEDS) {
    const FeedResults results = run.measure(feeding, seconds);
    if (is_first) printFeedsHead(seconds, run.peerName());
    is_first = false;
    printFeed(name, results);
  }
}

// -- Without a receiver

void printIdles(int seconds) {
  std::printf("\nsatnavd without a receiver, %d s each; load of the machine %s\n\n", seconds,
              loadAverage().c_str());
  std::printf("%-32s %9s   %s\n", "", "", "per second");
  std::printf("%-32s %9s   %12s %8s\n", "", "positions", "processor us", "wake-ups");
  for (const auto& state : idleStates()) {
    const IdleResult result = measureIdle(state, seconds);
    std::printf("%-32s %9zu   %12.1f %8.1f\n", state.name, result.published, result.per_second.processor_us,
                result.per_second.wake_ups);
    (void)std::fflush(stdout);
  }
}

}  // namespace

void printRates(int seconds) {
  printRatesHead(seconds);
  for (const auto& rate : RATES) printRate(rate, measureDaemon(rate, seconds));
  printAims();
}

void printLoads(int seconds, bool with_peer) {
  printFeeds(seconds, with_peer);
  printIdles(seconds);
}

}  // namespace bench
