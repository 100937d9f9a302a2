#include "bench/DaemonRun.h"

#include <algorithm>
#include <chrono>
#include <fstream>
#include <stdexcept>
#include <string>

#include "bench/ServiceRun.h"
#include "bench/SimulatedReceiver.h"
#include "bench/Stop.h"

namespace bench {

namespace {

constexpr int FIXES_TO_WARM_UP = 5;

/// Returns when the receiver sent each GST sentence.
std::vector<Sighting> sentBy(const SimulatedReceiver& receiver) {
  std::vector<Sighting> result;
  std::ifstream trace(receiver.trace());
  Sighting line;
  while (trace >> line.at_ns >> line.gst) {
    if (isGst(line.gst)) result.push_back(line);
  }
  return result;
}

/// Sets the delays of the fixes in [from, to), and how many the receiver sent in that time.
void compare(const std::vector<Sighting>& sent, const std::vector<Sighting>& arrivals, size_t from, size_t to,
             DaemonResult& result) {
  const auto find = [&](const Sighting& arrival) {
    const auto found =
        std::find_if(sent.begin(), sent.end(), [&](const auto& each) { return each.gst == arrival.gst; });
    if (found == sent.end()) throw std::runtime_error("a fix that the receiver never sent: " + arrival.gst);
    return found;
  };
  for (size_t i = from; i < to; ++i) {
    result.delays_ms.push_back(static_cast<double>(arrivals[i].at_ns - find(arrivals[i])->at_ns) / 1e6);
  }
  std::sort(result.delays_ms.begin(), result.delays_ms.end());
  result.driven = static_cast<size_t>(find(arrivals[to - 1]) - find(arrivals[from - 1]));
}

}  // namespace

DaemonResult measureDaemon(const DaemonRate& rate, int seconds) {
  const SimulatedReceiver receiver({"--rate", std::to_string(rate.hz), "--baud", std::to_string(rate.baud)});
  const ServiceRun service({.device = receiver.device(), .baud = rate.baud});
  struct Point {
    size_t fixes;
    ProcessFigures figures;
  };
  const auto next_point = [&]() -> Point {
    service.awaitFix();
    return {service.fixes().size(), service.figures()};
  };
  Point first = next_point();
  while (first.fixes < FIXES_TO_WARM_UP) first = next_point();
  rest(std::chrono::seconds(seconds));
  const Point last = next_point();

  DaemonResult result;
  compare(sentBy(receiver), service.fixes(), first.fixes, last.fixes, result);
  result.per_fix = loadBetween(first.figures, last.figures, static_cast<double>(last.fixes - first.fixes));
  result.end = last.figures;
  return result;
}

}  // namespace bench
