#include "bench/TimeoutRun.h"

#include <algorithm>
#include <functional>
#include <stdexcept>

#include "bench/DeviceWatch.h"
#include "bench/ServiceRun.h"
#include "bench/SimulatedReceiver.h"
#include "bench/Stop.h"
#include "sim/gnss/Pty.h"

namespace bench {

namespace {

using namespace ecu::koru;
using namespace std::chrono_literals;

using Act = DeviceWatch::Act;

constexpr unsigned BAUD = 38400;
constexpr auto PATIENCE = 120s;
constexpr int STEP_MS = 100;
constexpr int NO_FIX = 1;  // GnssData.status

constexpr double SILENT_MS = 1000;     // after the position before, without a receiver or its bytes
constexpr double LOSS_MS = 1300;       // after the last fix
constexpr double NO_FRAMES_MS = 999;   // after the position before, in CAN input
constexpr double REOPENING_MS = 3000;  // after the last byte
constexpr double POLL_MS = 3000;       // after the poll before

double gap_ms(int64_t from_ns, int64_t to_ns) {
  return static_cast<double>(to_ns - from_ns) / 1e6;
}

/// Calls `look` ten times a second until it returns true.
void await(const ServiceRun& service, const std::function<bool()>& look) {
  for (const auto end = Clock::now() + PATIENCE; !look();) {
    checkStop();
    if (Clock::now() >= end) throw std::runtime_error("no time-out; satnavd said:\n" + service.said());
  }
}

void append(std::vector<int64_t>& times, const DeviceWatch& watch, Act act) {
  for (const auto& sight : watch.take(STEP_MS)) {
    if (sight.act == act) times.push_back(sight.at_ns);
  }
}

/// Returns how late each came after the one before.
std::vector<double> lateAfterEach(const std::vector<int64_t>& times_ns, double period_ms) {
  std::vector<double> late_ms;
  for (size_t i = 1; i < times_ns.size(); ++i)
    late_ms.push_back(gap_ms(times_ns[i - 1], times_ns[i]) - period_ms);
  return late_ms;
}

std::vector<double> latePositions(const ServiceRun& service, size_t times, double period_ms) {
  await(service, [&] { return rest(100ms), service.publications().size() > times; });
  std::vector<int64_t> at_ns;
  for (const auto& each : service.publications()) at_ns.push_back(each.at_ns);
  return lateAfterEach(at_ns, period_ms);
}

}  // namespace

/// The receiver sends four epochs and is then silent for four seconds, again and again. GST is the last
/// sentence of an epoch, so the fix leaves with the last byte.
std::vector<Lateness> measureLosses(size_t times) {
  const SimulatedReceiver receiver({"--fault", "silence=4@8"});
  const DeviceWatch watch(receiver.device());
  const ServiceRun service({.device = receiver.device(), .baud = BAUD});
  service.awaitFix();
  const size_t first = service.publications().size();
  (void)watch.take();
  std::vector<int64_t> closed;
  Lateness losses{"no fix, after the last fix", {}};
  Lateness silences{"no fix, on a silent line", {}};
  Lateness reopenings{"device closed, after the last byte", {}};
  const auto evaluate = [&] {
    const auto positions = service.publications();
    for (auto* each : {&losses, &silences, &reopenings}) each->late_ms.clear();
    for (size_t i = first; i < positions.size(); ++i) {
      const auto& [before_status, before_ns] = positions[i - 1];
      if (positions[i].status != NO_FIX) continue;
      const double gap = gap_ms(before_ns, positions[i].at_ns);
      if (before_status == NO_FIX) {
        silences.late_ms.push_back(gap - SILENT_MS);
        continue;
      }
      losses.late_ms.push_back(gap - LOSS_MS);
      const auto reopening = std::ranges::upper_bound(closed, before_ns);
      if (reopening != closed.end())
        reopenings.late_ms.push_back(gap_ms(before_ns, *reopening) - REOPENING_MS);
    }
    return reopenings.late_ms.size() >= times;
  };
  await(service, [&] { return append(closed, watch, Act::CLOSED), evaluate(); });
  return {losses, silences, reopenings};
}

Lateness measureWithoutDevice(size_t times) {
  const ServiceRun service({.device = "/dev/no-receiver"});
  return {"no fix, without a device", latePositions(service, times, SILENT_MS)};
}

Lateness measureWithoutFrames(size_t times) {
  const ServiceRun service({.device = "/dev/no-receiver", .unit = {"--var", "hasgnss=false"}});
  return {"no fix, CAN input without frames", latePositions(service, times, NO_FRAMES_MS)};
}

Lateness measurePolls(size_t times) {
  const sim::Pty line(BAUD);
  const DeviceWatch watch(line.path());
  const ServiceRun service({.device = line.path(), .baud = BAUD, .config = "disable_hw_init = false\n"});
  std::vector<int64_t> polls;
  await(service, [&] { return append(polls, watch, Act::WRITTEN), polls.size() > times; });
  return {"poll of a receiver that does not answer", lateAfterEach(polls, POLL_MS)};
}

}  // namespace bench
