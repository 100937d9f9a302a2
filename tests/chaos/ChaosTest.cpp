// Runs the real service for a long time under a seeded schedule of faults around it. After each fault it must
// publish valid fixes again in time and leak nothing. Time in which the machine stood still does not count.
// SATNAVD_CHAOS_SECONDS: how long (20). SATNAVD_CHAOS_SEED: which schedule (1).

#include <cstdio>
#include <cstdlib>

#include "chaos/World.h"

namespace {

using namespace test;
using namespace test::chaos;

constexpr long GROWTH_KIB = 3L * 1024;

/// The output during a fault, after it has taken effect.
enum class Output { ANY, VALID, STATUS_1, NONE };
constexpr int64_t EFFECT_NS = 2500 * MS, JUDGED_NS = 4000 * MS;
constexpr int64_t GOOD_CONNECTION_NS = 10 * S;  // after such a connection the back-off restarts

struct Fault {
  const char* name;
  void (World::*begin)();
  void (World::*end)();
  int shortest_ms, longest_ms;  // how long the fault lasts
  /// Valid fixes return within this time of its end, plus `grows` times its duration (back-off).
  int promise_ms;
  int grows = 0;
  Output output = Output::ANY;
};

/// The service uses the receiver as it is.
const std::vector<Fault> ROAD_FAULTS = {
    {"broker killed", &World::kill_broker, &World::start_broker, 0, 6000, 3000, 1},
    {"broker frozen", &World::freeze_broker, &World::thaw_broker, 500, 8000, 2000},
    {"broker accepts and never answers", &World::mute_broker, &World::start_broker, 2000, 8000, 3000, 1},
    {"receiver unplugged", &World::unplug, &World::plug_in, 0, 5000, 4000, 0, Output::STATUS_1},
    {"receiver at another rate", &World::wrong_baud, &World::plug_in, 1000, 5000, 6000},
    {"corrupt line", &World::bad_line, &World::plug_in, 1000, 6000, 6000},
    {"flood of garbage", &World::flood, &World::plug_in, 1000, 5000, 7000, 0, Output::STATUS_1},
    {"hostile bytes", &World::hostile_bytes, &World::calm_down, 1000, 4000, 8000},
    {"flood on every topic", &World::flood_topics, &World::stop_flood, 4100, 6000, 3000, 0, Output::VALID},
    {"log daemon stops reading", &World::stop_log, &World::resume_log, 4100, 6000, 2000, 0, Output::VALID},
    {"clock stepped", &World::step_clock, &World::nothing, 0, 1000, 2000, 0, Output::VALID},
    {"GNSS switched off", &World::gnss_off, &World::gnss_on, 4100, 8000, 8000, 0, Output::NONE},
};

/// The service finds, configures and silences the receiver. A cold start switches its antenna off for 24 s.
const std::vector<Fault> CONTROL_FAULTS = {
    {"receiver power-cycled", &World::power_cycle, &World::nothing, 0, 0, 140'000},
    {"radio silence", &World::blackout, &World::wake_up, 2000, 8000, 140'000},
    {"receiver at another rate", &World::wrong_baud, &World::nothing, 0, 0, 140'000},
    {"hostile bytes", &World::hostile_bytes, &World::calm_down, 1000, 4000, 140'000},
    {"receiver unplugged", &World::unplug, &World::plug_in, 3000, 5000, 140'000, 0, Output::STATUS_1},
};

class Chaos : public World {
 public:
  /// `calm_ms` is the longest time between two faults, `age_ns` the greatest age of an epoch when its
  /// fix is sent.
  void run(bool control, std::vector<Fault> faults, int64_t start_ns, int calm_ms, int64_t age_ns) {
    m_start_ns = start_ns;
    const int64_t end_ns = now() + setting("SATNAVD_CHAOS_SECONDS", 20) * S;
    switch_on(control);
    start();
    EXPECT_LT(std::abs(clock_shift_us()), 2'000'000) << "the clock was not set from the receiver";
    for (size_t next = 0; now() < end_ns && !HasFailure(); ++next) {
      if (next % faults.size() == 0) std::shuffle(faults.begin(), faults.end(), random);
      rest(any(0, calm_ms) * MS);
      happen(faults[next % faults.size()]);
    }
    EXPECT_EQ(stop_service(), 0) << log();
    check_fixes(age_ns);
  }

 private:
  static int64_t now() { return clock_ns(CLOCK_BOOTTIME); }
  static void rest(int64_t ns) { std::this_thread::sleep_for(std::chrono::nanoseconds(ns)); }
  void start() {
    start_service();
    recovers("start", now(), m_start_ns);
    m_handles = handles();
    m_resident_kib = resident_kib();
    m_connected_ns = now();
  }

  /// Expects two valid fixes after `since_ns` within the promised time.
  void recovers(const std::string& what, int64_t since_ns, int64_t promise_ns) {
    const auto is_late = [&] { return now() - since_ns > promise_ns + stalls.since(since_ns); };
    const auto is_back = [&] { return bus->count_since(since_ns, VALID) >= 2; };
    while (!is_back() && !is_late()) rest(2 * MS);
    const bool in_time = is_back();
    std::printf("%-34s  valid again after %6lld ms, promised %6lld\n", what.c_str(),
                static_cast<long long>((now() - since_ns) / MS), static_cast<long long>(promise_ns / MS));
    static_cast<void>(std::fflush(stdout));
    EXPECT_TRUE(in_time) << what << "\n" << log();
  }

  void happen(const Fault& fault) {
    if (fault.grows > 0) rest(m_connected_ns + GOOD_CONNECTION_NS - now());
    const int64_t begin_ns = now();
    const int lasts_ms = any(fault.shortest_ms, fault.longest_ms);
    (this->*fault.begin)();
    const bool stop = any(0, 3) == 0;
    rest((stop ? any(0, lasts_ms) : lasts_ms) * MS);
    expect_output(fault, begin_ns);
    if (stop) {
      EXPECT_EQ(stop_service(), 0) << fault.name << " and SIGTERM\n" << log();
      (this->*fault.end)();
      start();
      return;
    }
    (this->*fault.end)();
    EXPECT_TRUE(service->running()) << fault.name << "\n" << log();
    const int64_t end_ns = now();
    recovers(fault.name, end_ns, fault.promise_ms * MS + fault.grows * (end_ns - begin_ns));
    EXPECT_TRUE(eventually([&] { return handles() == m_handles; }, 2000))
        << fault.name << ": descriptors, threads " << testing::PrintToString(handles()) << ", at the start "
        << testing::PrintToString(m_handles);
    EXPECT_LE(resident_kib(), m_resident_kib + GROWTH_KIB) << fault.name;
    if (fault.output == Output::VALID && stalls.since(begin_ns) == 0) {
      EXPECT_FALSE(came(begin_ns, NOTHING_KNOWN)) << fault.name << "\n" << log();
    }
    if (fault.grows > 0) m_connected_ns = now();
  }

  void expect_output(const Fault& fault, int64_t begin_ns) {
    if (fault.output == Output::ANY || now() < begin_ns + JUDGED_NS || stalls.since(begin_ns) > 0) return;
    SCOPED_TRACE(std::string(fault.name) + "\n" + log());
    EXPECT_EQ(came(begin_ns + EFFECT_NS, VALID), fault.output == Output::VALID);
    EXPECT_EQ(came(begin_ns + EFFECT_NS, NOTHING_KNOWN), fault.output == Output::STATUS_1);
  }
  [[nodiscard]] bool came(int64_t since_ns, int status) const {
    return bus->count_since(since_ns, status) > 0;
  }

  /// Expects that each valid fix is of a new epoch and was sent in time.
  void check_fixes(int64_t longest_ns) {
    const int64_t boot_utc_ns = clock_ns(CLOCK_REALTIME) - now();
    int64_t before_us = 0, oldest_ns = 0, count = 0;
    for (const auto& fix : bus->fixes()) {
      if (fix.status != VALID) continue;
      ++count;
      EXPECT_GT(fix.utc_us, before_us) << "an epoch was sent twice";
      const int64_t age_ns = fix.sent_ns + boot_utc_ns - fix.utc_us * 1000;
      EXPECT_LE(age_ns, longest_ns + stalls.since(fix.sent_ns - longest_ns) - stalls.since(fix.sent_ns))
          << "an old fix was sent as new, " << fix.utc_us;
      oldest_ns = std::max(oldest_ns, age_ns);
      before_us = fix.utc_us;
    }
    const auto ms = [](int64_t ns) { return static_cast<long long>(ns / MS); };
    std::printf("%lld valid fixes, each once, the oldest sent %lld ms after its epoch's time\n",
                static_cast<long long>(count), ms(oldest_ns));
    std::printf("The machine stood still for %lld ms\n", ms(stalls.since(0)));
  }

  int64_t m_start_ns = 0;
  int64_t m_connected_ns = 0;
  std::pair<long, long> m_handles;
  long m_resident_kib = 0;
};

TEST_F(Chaos, TheRoadOfAFixSurvivesEverythingAroundIt) {
  // An epoch that a bad line leaves incomplete is closed 1.3 s after the one before, so up to 1.2 s late.
  run(false, ROAD_FAULTS, 10 * S, 2000, 1500 * MS);
}

TEST_F(Chaos, TheReceiverIsFoundAndWokenWhateverHappens) {
  run(true, CONTROL_FAULTS, 130 * S, 40'000, 2500 * MS);
}

}  // namespace
