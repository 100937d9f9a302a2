// The service's state as the log, the service manager and the health topic tell it.

#include <gmock/gmock.h>

#include <algorithm>

#include "platform/base/ServiceManager.h"
#include "scenario/World.h"
#include "support/LocalSocket.h"
#include "support/LogCapture.h"

namespace {

using namespace ecu::koru;
using namespace test;
using namespace testing;
using Health = pb::GnssHealth;

constexpr const char* HEALTH_TOPIC = "system/gnss/health";
const std::string OFF(1, '\0'), ON(1, '\1');

/// Sends what `burst` returns at each full second.
class SecondBySecond : public Arrivals {
 public:
  using Burst = std::function<std::string(int second)>;
  Burst burst;

  void advance_to(int64_t now_us) override {
    for (; m_next_us <= now_us; m_next_us += S) m_arrived += burst(static_cast<int>(m_next_us / S));
  }
  [[nodiscard]] int64_t next_byte_us() const override { return m_next_us; }

 private:
  int64_t m_next_us = S;
};

/// Reads the reports of a world's service every 50 ms.
class Reports : Unique {
 public:
  explicit Reports(World& world, bool on_bus = true) : m_world(world) {
    setenv("NOTIFY_SOCKET", name().c_str(), 1);
    world.service->setServiceManager(ServiceManager::from_environment());
    unsetenv("NOTIFY_SOCKET");
    if (on_bus) world.service->setHealthTopic(HEALTH_TOPIC, "1.2.3");
  }
  void run(double seconds) {
    const auto end_us = static_cast<int64_t>(seconds * S);
    for (int64_t at_us = 0; at_us <= end_us; at_us += 50 * MS) m_world.time.at(at_us, [this] { look(); });
    m_world.run(seconds);
    look();
    readHealth();
  }
  /// Return when the report came first, in seconds, from `from_s` on; infinity if it did not.
  [[nodiscard]] double recordAt(const std::string& text, double from_s = 0) const {
    return firstOf(m_records, from_s, [&](const auto& each) { return each.ends_with(": " + text); });
  }
  [[nodiscard]] double statusAt(const std::string& text, double from_s = 0) const {
    return firstOf(m_statuses, from_s, [&](const auto& each) { return each == "STATUS=" + text; });
  }
  [[nodiscard]] double healthAt(Health::State state, const std::string& reason, double from_s = 0) const {
    return firstOf(m_health, from_s,
                   [&](const Health& each) { return each.state() == state && each.reason() == reason; });
  }
  /// Returns the records that tell a state.
  [[nodiscard]] std::vector<std::string> records() const {
    std::vector<std::string> texts;
    for (const auto& [at_s, text] : m_records) {
      const bool is_state =
          text.find("valid fix") != std::string::npos || text.find("supply") != std::string::npos ||
          text.ends_with("GNSS is switched off") || text.find("searching") != std::string::npos;
      if (is_state) texts.push_back(text);
    }
    return texts;
  }
  [[nodiscard]] const std::vector<std::pair<double, Health>>& health() const { return m_health; }

 private:
  static std::string name() { return "@satnavd-reports-" + std::to_string(getpid()); }

  template <typename T, typename Matches>
  static double firstOf(const std::vector<std::pair<double, T>>& reports, double from_s, Matches matches) {
    const auto found = std::ranges::find_if(
        reports, [&](const auto& each) { return each.first >= from_s && matches(each.second); });
    return found != reports.end() ? found->first : std::numeric_limits<double>::infinity();
  }

  void look() {
    const double now_s = static_cast<double>(m_world.time.now_us()) / S;
    const std::string log = LogCapture::so_far();
    while (m_log_read < log.size()) {
      const size_t end = log.find('\n', m_log_read);
      m_records.emplace_back(now_s, log.substr(m_log_read, end - m_log_read));
      m_log_read = end + 1;
    }
    for (auto& text : m_manager.take()) m_statuses.emplace_back(now_s, std::move(text));
  }
  void readHealth() {
    for (const auto& [topic, message, at_ns] : m_world.bus->records()) {
      if (topic != HEALTH_TOPIC) continue;
      EXPECT_TRUE(message.retained);
      m_health.emplace_back(static_cast<double>(at_ns - ScenarioTime::START_NS) / 1e9,
                            bodyOf<Health>(message));
    }
  }

  World& m_world;
  LogCapture m_log{"INFO"};
  LocalSocket m_manager{name()};
  size_t m_log_read = 0;
  std::vector<std::pair<double, std::string>> m_records;
  std::vector<std::pair<double, std::string>> m_statuses;
  std::vector<std::pair<double, Health>> m_health;
};

std::string withoutFix(const std::string& time, const std::string& satellites) {
  return nmea("GNRMC," + time + ",V,,,,,,,230326,,,N") +
         nmea("GNGGA," + time + ",,,,,0," + satellites + ",99.99,,,,,,") +
         nmea("GNGSA,A,1,,,,,,,,,,,,,99.99,99.99,99.99") + nmea("GNGST," + time + ",,,,,,,");
}

std::string timeOf(int second) {
  char text[16];
  static_cast<void>(std::snprintf(text, sizeof text, "12%02d%02d.00", second / 60 % 60, second % 60));
  return text;
}
std::string good(int second) {
  return sentences(timeOf(second), "230326", "RMC GGA GSA GSA GST");
}
std::string bad(int second) {
  return withoutFix(timeOf(second), "00");
}
std::string antenna(char status) {
  std::string payload(60, '\0');
  payload[20] = status;
  payload[21] = 1;
  return ubx(0x0A, 0x09, payload);
}
std::string replaced(std::string text, char what, const std::string& by) {
  for (size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += by.size())
    text.replace(at, 1, by);
  return text;
}

constexpr const char* GOOD_AGAIN = " (9 satellites, 3.1 m)";

// The antenna's status stays until the receiver reports another one; this unit's circuit swaps OK and open.
TEST(Reports, EachCauseIsToldOnceWithinThreeSeconds) {
  SecondBySecond source;
  source.burst = good;
  World world(source, {.hwversion = "zpt", .hardware_init = false});
  const auto gone = [&](bool is) { world.terminal.gone = world.terminal.missing = is; };
  const struct {
    Health::State state;
    const char* reason;
    SecondBySecond::Burst burst;
    std::function<void(bool begins)> event;
  } causes[] = {
      {Health::NO_FIX, "no valid fix: 0 satellites", bad, nullptr},
      {Health::SILENT, "no valid fix: the receiver has been silent for 3 s; opening the port again",
       [](int) { return ""; }, nullptr},
      {Health::NO_DEVICE,
       "no valid fix: /dev/ttyFP3 cannot be opened: No such file or directory; trying again every second",
       good, gone},
      {Health::UNFRAMED,
       "no valid fix: 284 bytes/s arrive at 38400 baud, none forms a sentence: wrong rate or line ends?",
       [](int second) { return replaced(good(second), '\r', ""); }, nullptr},
      {Health::BAD_CHECKSUMS, "no valid fix: 5 of 5 sentences have a wrong checksum",
       [](int second) { return replaced(good(second), '$', "$X"); }, nullptr},
      {Health::NO_SENTENCES, "no valid fix: UBX frames arrive at 38400 baud, but no sentence",
       [](int) { return antenna(4); }, nullptr},
      {Health::NO_RMC, "no valid fix: sentences arrive at 38400 baud, but no RMC",
       [](int second) { return sentences(timeOf(second), "230326", "GGA GSA GSA GST"); }, nullptr},
      {Health::ANTENNA_SHORT, "no valid fix: antenna short circuit",
       [](int second) { return bad(second) + antenna(3); }, nullptr},
      {Health::ANTENNA_OPEN, "no valid fix: antenna open",
       [](int second) { return bad(second) + antenna(2); }, nullptr},
      {Health::NO_DATE, "no valid fix: the date is not known yet",
       [](int second) { return sentences(timeOf(second), "", "RMC GGA GSA GSA GST"); }, nullptr},
      {Health::ANTENNA_OFF, "no valid fix: the antenna's supply is switched off by a system parameter", bad,
       [&](bool begins) { world.inject(topic::PARAMETER_ANTENNA_ON, begins ? OFF : ON); }},
      {Health::GNSS_OFF, "GNSS is switched off", good,
       [&](bool begins) { world.inject(topic::PARAMETER_GNSS_ON, begins ? OFF : ON); }},
  };
  world.service->enableMqttSystemSelection();
  Reports reports(world);
  double at_s = 10.1;
  for (const auto& cause : causes) {
    world.at(at_s, [&] {
      source.burst = cause.burst;
      if (cause.event) cause.event(true);
    });
    world.at(at_s + 20, [&] {
      source.burst = [](int second) { return good(second) + antenna(4); };
      if (cause.event) cause.event(false);
    });
    at_s += 65;
  }
  ASSERT_GT(at_s, 600);
  reports.run(at_s);

  at_s = 10.1;
  EXPECT_LE(reports.recordAt("valid fix after 1 s" + std::string(GOOD_AGAIN)), 4);
  for (const auto& cause : causes) {
    EXPECT_LE(reports.recordAt(cause.reason, at_s), at_s + 3) << cause.reason;
    EXPECT_LE(reports.statusAt(cause.reason, at_s), at_s + 3) << cause.reason;
    EXPECT_LE(reports.healthAt(cause.state, cause.reason, at_s), at_s + 3) << cause.reason;
    at_s += 65;
  }
  EXPECT_EQ(reports.records().size(), 1 + 2 * std::size(causes)) << PrintToString(reports.records());
}

// The causes that need a receiver that answers, none at all, or the CAN.
TEST(Reports, CausesOfReceiverControlAndOfTheCan) {
  const struct {
    double from_s;  // -1: when the supply is switched
    double seconds;
    Health::State state;
    const char* reason;
    bool has_receiver;
    void (*prepare)(World& world, SimulatedReceiver& receiver);
  } rows[] = {
      {-1, 30, Health::SUPPLY_SWITCHED_OFF,
       "antenna supply switched off at cold start; expect about 25 s without a fix", true, nullptr},
      {58, 70, Health::NO_FIX, "no valid fix: 0 satellites", true,
       [](World& world, SimulatedReceiver& receiver) {
         world.at(58, [&] { receiver.receiver.set_antenna(sim::AntennaState::open); });
       }},
      {20, 30, Health::UNCONFIRMED, "valid fix, but not trusted: the receiver does not answer commands", true,
       [](World&, SimulatedReceiver& receiver) { receiver.receiver.set_mute(true); }},
      {100, 110, Health::RADIO_SILENCE, "no valid fix: radio silence", true,
       [](World& world, SimulatedReceiver&) { world.injectAt(100, topic::BLACKOUT_MODE, ON); }},
      {0, 10, Health::CAN_SILENT, "no valid fix: no time and date arrive over CAN", false, nullptr},
      {0.5, 10, Health::CAN_NO_FIX, "no valid fix: the unit that sends over CAN has none", false,
       [](World& world, SimulatedReceiver&) {
         for (int second = 1; second < 10; ++second)
           world.injectAt(second, topic::TD_RX, "\x04\x23\x0C\x03\x5C\x29\xFF\xFF");
       }}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.reason);
    SimulatedReceiver receiver({});
    World world(receiver, {.hasgnss = row.has_receiver ? "true" : "false"});
    world.service->enableMqttSystemSelection();
    Reports reports(world);
    if (row.prepare != nullptr) row.prepare(world, receiver);
    reports.run(row.seconds);
    const auto supply = std::ranges::find_if(world.terminal.sent, [](const Sent& each) {
      return each.bytes.starts_with(bytes("B562 0613 0400"));
    });
    const double from_s = row.from_s >= 0 ? row.from_s : static_cast<double>(supply->at_us) / S;
    EXPECT_LE(reports.recordAt(row.reason, from_s), from_s + 3) << PrintToString(reports.records());
    EXPECT_LE(reports.statusAt(row.reason, from_s), from_s + 3);
    EXPECT_LE(reports.healthAt(row.state, row.reason, from_s), from_s + 3);
  }
}

// One record begins the search; the line for the administrator follows the rates.
TEST(Reports, TheSearchIsFollowedInTheStatus) {
  Script nothing;
  World world(nothing);
  Reports reports(world);
  reports.run(120);
  EXPECT_THAT(reports.records(), ElementsAre(HasSubstr("searching the receiver: 38400 baud, 1st of 5")));
  EXPECT_LE(reports.healthAt(Health::SEARCHING, "searching the receiver: 38400 baud, 1st of 5"), 3);
  double at_s = 0;
  for (const char* const rate :
       {"38400 baud, 1st", "57600 baud, 2nd", "115200 baud, 3rd", "19200 baud, 4th", "9600 baud, 5th"}) {
    const double next_s = reports.statusAt("searching the receiver: " + std::string(rate) + " of 5");
    EXPECT_GT(next_s, at_s) << rate;
    EXPECT_LT(next_s, 120) << rate;
    at_s = next_s;
  }
}

TEST(Reports, HealthComesEveryTenSecondsAndAtEachChange) {
  SecondBySecond source;
  source.burst = good;
  World world(source, {.hwversion = "zpt", .hardware_init = false});
  Reports reports(world);
  world.at(21.5, [&] { world.bus->set_connected(false); });
  world.at(23.5, [&] { world.bus->set_connected(true); });
  world.at(33.4, [&] { world.time.clock().advance(300'000'000); });  // the host stands still
  reports.run(44.2);
  std::vector<double> times;
  for (const auto& [at_s, health] : reports.health()) times.push_back(std::round(at_s * 10) / 10);
  EXPECT_THAT(times, ElementsAre(0, 3, 13, 23.5, 33.7, 43.5, 44.2));
  const Health& last = reports.health()[4].second;
  EXPECT_EQ(last.state(), Health::VALID);
  EXPECT_EQ(last.valid_fix_age_ms(), 700U);
  EXPECT_EQ(last.fixes(), 33U);
  EXPECT_EQ(last.uptime_ms(), 33700U);
  EXPECT_EQ(last.reconnects(), 1U);
  EXPECT_EQ(last.version(), "1.2.3");
  EXPECT_EQ(reports.health().back().second.state(), Health::STOPPED);
}

}  // namespace
