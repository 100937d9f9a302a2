// The vehicle's buses: what goes out with each fix, and a unit that lives on what comes in.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <sstream>
#include <thread>

#include "platform/Topics.h"
#include "scenario/World.h"

namespace {

using namespace ecu::koru;
using namespace test;
using testing::ElementsAre;

constexpr int64_t MS = 1000;
constexpr int64_t S = 1'000'000;

World::Options unitA() {
  return {.hwversion = "zpt"};
}

World::Options unitB() {
  return {.hasgnss = "false"};
}

bool isGroup(const std::string& topic) {
  return topic.starts_with("rt/") && topic != topic::GNSS_TIMESTAMP && topic != topic::MODULE_ERROR;
}

/// What left, with the microsecond at which it did: "data" for the position, the names of the groups.
std::vector<std::pair<int64_t, std::string>> busTraffic(const World& world) {
  const std::map<std::string, std::string> names{
      {topic::GNSS_DATA, "data"},       {topic::VP1_TX, "VP1"},        {topic::P2C1_TX, "P2C1"},
      {topic::VP2_TX, "VP2"},           {topic::VDS_TX, "VDS"},        {topic::TD_TX, "TD"},
      {topic::GNSS_TIMESTAMP, "stamp"}, {topic::MODULE_ERROR, "error"}};
  std::vector<std::pair<int64_t, std::string>> traffic;
  for (const auto& record : world.bus->records()) {
    const auto name = names.find(record.topic);
    if (name == names.end()) continue;
    const int64_t at_us = (record.steady_ns - 1'000'000'000'000) / 1000;
    if (traffic.empty() || traffic.back().first != at_us || name->second == "data") {
      traffic.emplace_back(at_us, name->second);
    } else {
      traffic.back().second += " " + name->second;
    }
  }
  return traffic;
}

/// Bursts of the receiver, each with the ms at which it arrives.
using Bursts = std::vector<std::pair<int64_t, std::string>>;

/// `fixes` at `hz`, the first of second 1.
Bursts atRate(int hz, int fixes) {
  Bursts bursts;
  bursts.reserve(static_cast<size_t>(fixes));
  for (int i = 0; i < fixes; ++i) {
    bursts.emplace_back(300 + 1000 / hz * i, epoch(1 + i / hz, "RMC GGA GSA GST", i % hz * (100 / hz)));
  }
  return bursts;
}

Bursts repeated(const std::string& burst, int64_t every_ms) {
  Bursts bursts;
  for (int i = 0; i < 4; ++i) bursts.emplace_back(300 + every_ms * i, burst);
  return bursts;
}

Bursts without(Bursts bursts, int index) {
  bursts.erase(bursts.begin() + index);
  return bursts;
}

TEST(Buses, EachSecondGoesOutOnceAndTheBusIsNeverSilentForLong) {
  const std::string no_date = "GGA GSA GSA GST";
  const struct {
    const char* what;
    Bursts bursts;
    const char* expected;  ///< ms of each position, "*": with the groups
  } cases[] = {
      {"1 Hz", atRate(1, 3), "300* 1300* 2300*"},
      {"4 Hz", atRate(4, 9), "300* 550 800 1050 1300* 1550 1800 2050 2300*"},
      {"10 Hz", atRate(10, 12), "300* 400 500 600 700 800 900 1000 1100 1200 1300* 1400"},
      {"4 Hz, first fix of a second lost", without(atRate(4, 9), 4),
       "300* 550 800 1050 1550* 1800 2050 2300*"},
      // Lost: 1.3 s after the last fix, at the next wait's end.
      {"missed epoch", {{300, epoch(1)}, {2300, epoch(3)}}, "300* 1700* 2300*"},
      {"4 Hz ends in mid-second", atRate(4, 3), "300* 550 800 2200* 3300*"},
      {"10 Hz ends in mid-second", atRate(10, 6), "300* 400 500 600 700 800 2200* 3300*"},
      {"no epoch at all", {}, "1100* 2200*"},
      // A fix that does not begin a new second leaves when 0.95 s have passed.
      {"the clock stands, 0.50 s", repeated(epoch(1), 500), "300* 800 1300* 1800"},
      {"the clock stands, 0.99 s", repeated(epoch(1), 990), "300* 1290* 2280* 3270*"},
      {"the clock stands, 1.00 s", repeated(epoch(1), 1000), "300* 1300* 2300* 3300*"},
      {"the clock stands, 1.01 s", repeated(epoch(1), 1010), "300* 1310* 2320* 3330*"},
      {"the clock stands, 1.20 s", repeated(epoch(1), 1200), "300* 1500* 2700* 3900*"},
      {"undated, 1 Hz", repeated(epoch(1, no_date), 1000), "300 1300* 2300* 3300*"},
      {"a second after a stall, too early",
       {{300, epoch(1)}, {1250, epoch(1)}, {2300, epoch(3)}},
       "300* 1250 2300*"},
      {"a second after a stall", {{300, epoch(1)}, {1251, epoch(1)}, {2300, epoch(3)}}, "300* 1251* 2300*"},
      // The epoch is over with the next GST.
      {"GST and RMC lost",
       {{300, epoch(1)},
        {1050, epoch(1, "RMC GGA GSA GSA", 75)},
        {1303, epoch(2, "GGA GSA GST")},
        {1550, epoch(2)}},
       "300* 1303* 1550*"},
      {"RMC lost",
       {{300, epoch(1)}, {550, epoch(1, no_date, 25)}, {800, epoch(1)}, {1300, epoch(2)}},
       "300* 550 800 1300*"},
  };
  for (const auto& tested : cases) {
    Script script;
    for (const auto& [at_ms, bytes] : tested.bursts) script.add(at_ms * MS, bytes);
    World world(script, unitA());
    world.service->disableHardwareInit();
    std::vector<std::pair<int64_t, std::string>> expected;
    std::istringstream words(tested.expected);
    for (std::string word; words >> word;) {
      expected.emplace_back(std::stoll(word) * MS,
                            word.back() == '*' ? "data VP1 P2C1 VP2 VDS TD stamp error" : "data");
    }
    world.run(static_cast<double>(expected.back().first) / 1e6 + 0.2);
    EXPECT_EQ(busTraffic(world), expected) << tested.what;
  }
}

TEST(Buses, FixIsTrustedOnceTheReceiverIsKnown) {
  for (const bool trusted : {false, true}) {
    Script script;
    for (int s = 1; s <= 2; ++s) script.add(s * S - 700 * MS, epoch(s));
    World world(script, unitA());
    if (trusted) world.service->disableHardwareInit();
    const auto published = world.run(1.9);
    const std::string nothing(8, '\xFF');
    EXPECT_EQ(published.at(1).data.status(), 3);
    EXPECT_EQ(world.sentOn(topic::VP1_TX).at(1) == nothing, !trusted);
    EXPECT_EQ(world.sentOn(topic::VDS_TX).at(1) == nothing, !trusted);
    EXPECT_EQ(world.sentOn(topic::TD_TX).at(1) == nothing, !trusted);
    EXPECT_EQ(world.sentOn(topic::MODULE_ERROR).at(1), std::string(1, '\0'));
  }
}

TEST(Buses, UnitsWithoutABusSendNothingThere) {
  Script script;
  script.add(300 * MS, epoch(1));
  World world(script);  // "qrx": the unit's time service is told the time
  world.service->disableHardwareInit();
  world.run(1);
  EXPECT_EQ(busTraffic(world), (std::vector<std::pair<int64_t, std::string>>{{300 * MS, "data"}}));
  // 12:35:01 on 23 March 2026, no time zone.
  EXPECT_THAT(world.sentOn(topic::SYSTIME_TD), ElementsAre(std::string("\x04\x23\x0C\x03\x5C\x29\xFF\xFF")));
}

/// Carries what unit A put on the buses to unit B, at the times at which it was sent, until `until_us`.
void carry(const std::vector<com::MemoryTransport::Record>& sent, World& to, int64_t until_us = INT64_MAX) {
  const std::string tx = "/tx/";
  for (const auto& record : sent) {
    const int64_t at_us = (record.steady_ns - 1'000'000'000'000) / 1000;
    if (!isGroup(record.topic) || at_us >= until_us) continue;
    std::string topic = record.topic;
    topic.replace(topic.find(tx), tx.size(), "/rx/").replace(topic.find("_local"), 6, "_fb");
    const std::string bytes = valueOf(record.message);
    to.time.at(at_us, [&to, topic, bytes] { to.inject(topic, bytes); });
  }
}

TEST(Buses, UnitWithoutAReceiverPublishesTheSameDrive) {
  sim::ReceiverOptions options;
  options.utc_start_us = 1'798'761'560'000'000;  // 2026-12-31T23:59:20Z
  SimulatedReceiver source(options);
  World a(source, unitA());
  a.service->disableHardwareInit();
  const auto from_a = a.run(60.5);
  const auto sent = a.bus->records();
  Script nothing;
  World b(nothing, unitB());
  carry(sent, b);
  const auto from_b = b.run(60.5);
  ASSERT_GT(from_b.size(), 55U);
  size_t compared = 0;
  for (const auto& [at_us, mine] : from_b) {
    const auto other = std::find_if(from_a.begin(), from_a.end(), [&, at = at_us](const Published& each) {
      return each.at_us == at && each.data.status() == 3;
    });
    if (other == from_a.end() || mine.status() != 3) continue;
    const pb::GnssData& theirs = other->data;
    EXPECT_NEAR(mine.latitude(), theirs.latitude(), 4e-6);  // a float's last place
    EXPECT_NEAR(mine.longitude(), theirs.longitude(), 1e-6);
    EXPECT_NEAR(mine.speed(), theirs.speed(), 1.0 / 256);
    EXPECT_NEAR(mine.heading(), theirs.heading(), 1.0 / 128);
    EXPECT_NEAR(mine.altitude(), theirs.altitude(), 0.125);
    EXPECT_EQ(mine.num_satellites(), theirs.num_satellites());
    EXPECT_NEAR(mine.hdop(), theirs.hdop(), 0.1);
    EXPECT_NEAR(mine.vdop(), theirs.vdop(), 0.1);
    EXPECT_NEAR(mine.accuracy(), theirs.accuracy(), 0.5);
    EXPECT_EQ(mine.fix(), theirs.fix());
    EXPECT_EQ(mine.quality(), theirs.quality());
    EXPECT_EQ(mine.utc_time_us(), theirs.utc_time_us());
    EXPECT_EQ(mine.timestamp_ns(), static_cast<uint64_t>(at_us * 1000 + 1'000'000'000'000));
    EXPECT_EQ(mine.nmea_size(), 0);
    ++compared;
  }
  EXPECT_GT(compared, 50U);
}

/// Groups of a fix at 48.1173 N 11.5167 E, 41.5 km/h, at 12:35:SS on 23 March 2026.
struct Peer {
  explicit Peer(World& world_in) : world(world_in) {}
  void fix(int64_t at_us, int second) const {
    at(at_us, topic::VP1_RX, "\x28\x7C\xDA\x99\x18\x06\x0A\x84");
    at(at_us, topic::P2C1_RX, "\x02\x01\xFF\x4B\x5F\x06\xFF\xFF");
    at(at_us, topic::VP2_RX, "\x09\x0C\x0F\x13\xFF\xFF\xFF\xFF");
    at(at_us, topic::VDS_RX, std::string("\x00\x2A\x80\x29\xFF\xFF\x4B\x5F", 8));
    date(at_us, second);
  }
  void date(int64_t at_us, int second) const {
    at(at_us, topic::TD_RX, std::string(1, static_cast<char>(second * 4)) + "\x23\x0C\x03\x5C\x29\xFF\xFF");
  }
  void at(int64_t at_us, const std::string& topic, const std::string& bytes) const {
    world.time.at(at_us, [this, topic, bytes] { world.inject(topic, bytes); });
  }
  World& world;
};

/// ms and status of each publication.
std::vector<std::pair<int64_t, int>> cadence(const std::vector<Published>& published) {
  std::vector<std::pair<int64_t, int>> rows;
  rows.reserve(published.size());
  for (const auto& [at_us, data] : published) rows.emplace_back(at_us / MS, data.status());
  return rows;
}

TEST(CanInput, TimeDateFramesSetThePaceAndSilenceIsNoFix) {
  Script nothing;
  World world(nothing, unitB());
  const Peer peer(world);
  peer.fix(2500 * MS, 1);
  peer.fix(3500 * MS, 2);
  const auto published = world.run(7.5);
  EXPECT_THAT(cadence(published), ElementsAre(std::pair(2000, 1), std::pair(2500, 3), std::pair(3500, 3),
                                              std::pair(5200, 2), std::pair(6199, 2), std::pair(7198, 2)));
  EXPECT_EQ(published.at(1).data.utc_time_us(), 1'774'269'301'000'000U);
  for (const size_t undated : {3U, 4U}) {
    EXPECT_FALSE(published.at(undated).data.has_utc_time_us());
    EXPECT_EQ(published.at(undated).data.timestamp_ns(), 0U);
  }
  EXPECT_EQ(world.sentOn(topic::MODULE_ERROR).size(), published.size());
  EXPECT_THAT(world.terminal.opens_us, testing::IsEmpty());
  EXPECT_THAT(world.bus->unsubscribed(), testing::IsSupersetOf({topic::VP1_RX, topic::VP2_RX, topic::VDS_RX,
                                                                topic::TD_RX, topic::P2C1_RX}));
}

TEST(CanInput, BadGroupCostsItsOwnFields) {
  const struct {
    std::string topic, bytes;
    std::string kept;  // p(osition) s(peed) a(ltitude) n(umber of satellites) m(ode) d(ate)
  } cases[] = {
      {topic::VP1_RX, "\x28\x7C\xDA\x99\x18\x06\x0A\x84", "psanmd"},
      {topic::VP1_RX, "\x28\x7C\xDA\xFE\x18\x06\x0A\x84", "sanmd"},  // latitude in error
      {topic::VP1_RX, "\x28\x7C\xDA\x99\xFF\xFF\xFF\xFF", "sanmd"},  // no longitude
      {topic::VP1_RX, "\x28\x7C\xDA\x99\x18\x06\x0A", "sanmd"},      // short
      // speed out of range, not available
      {topic::VDS_RX, std::string("\x00\x2A\x00\xFB\xFF\xFF\x4B\x5F", 8), "pnmd"},
      {topic::VDS_RX, std::string("\x00\x2A\xFF\xFF\xFF\xFF\x4B\x5F", 8), "panmd"},
      {topic::VP2_RX, "\xFF\x0C\x0F\x13\xFF\xFF\xFF\xFF", "psamd"},  // no satellites
      // Without a navigation mode there is nothing to be dated.
      {topic::P2C1_RX, "\xFE\x01\xFF\x4B\x5F\x06\xFF\xFF", "psn"},
      {topic::TD_RX, "\x04\x23\xFF\x03\x5C\x29\xFF\xFF", "psanm"},   // no hours
      {topic::TD_RX, "\x04\x23\x0C\x0D\x5C\x29\xFF\xFF", "psanm"},   // month 13
      {topic::TD_RX, "\x04\x23\x0C\x06\x7C\x29\xFF\xFF", "psanm"},   // 31 June 2026
      {topic::TD_RX, "\x04\x23\x0C\x02\x78\x2B\xFF\xFF", "psanm"},   // 30 February 2028
      {topic::TD_RX, "\x04\x23\x0C\x02\x74\x73\xFF\xFF", "psanm"},   // 29 February 2100
      {topic::TD_RX, "\x04\x23\x0C\x02\x74\x2B\xFF\xFF", "psanmd"},  // 29 February 2028
  };
  for (const auto& tested : cases) {
    Script nothing;
    World world(nothing, unitB());
    const Peer peer(world);
    peer.fix(500 * MS, 1);
    peer.at(1400 * MS, tested.topic, tested.bytes);
    if (tested.topic != topic::TD_RX) peer.date(1500 * MS, 2);
    const auto published = world.run(1.6);
    ASSERT_EQ(published.size(), 2U) << tested.kept;
    const pb::GnssData& data = published.back().data;
    std::string kept;
    if (data.has_latitude()) kept += 'p';
    if (data.has_speed()) kept += 's';
    if (data.has_altitude()) kept += 'a';
    if (data.has_num_satellites()) kept += 'n';
    if (data.has_fix()) kept += 'm';
    if (data.has_utc_time_us()) kept += 'd';
    EXPECT_EQ(kept, tested.kept);
    EXPECT_EQ(data.has_longitude(), data.has_latitude());
  }
}

TEST(CanInput, NothingFromBeforeIsANewFix) {
  Script nothing;
  World world(nothing, unitB());
  const Peer peer(world);
  peer.fix(500 * MS, 1);
  // What the broker had kept is of an unknown time.
  world.time.at(600 * MS, [&] {
    com::Message kept = enveloped(std::string("\x08\x23\x0C\x03\x5C\x29\xFF\xFF"));
    kept.retained = true;
    world.bus->inject(topic::TD_RX, kept);
  });
  world.service->enableMqttSystemSelection();
  peer.at(1000 * MS, topic::PARAMETER_GNSS_ON, std::string(1, '\0'));
  peer.fix(2000 * MS, 3);  // while GNSS is switched off
  peer.at(3000 * MS, topic::PARAMETER_GNSS_ON, std::string(1, '\1'));
  const auto published = world.run(9);
  ASSERT_GE(published.size(), 2U);
  EXPECT_EQ(published.at(0).data.status(), 3);
  for (size_t i = 1; i < published.size(); ++i) {
    EXPECT_EQ(published.at(i).data.status(), 1);
    EXPECT_FALSE(published.at(i).data.has_latitude());
    EXPECT_GT(published.at(i).at_us, 5 * S);
  }
}

TEST(CanInput, DateThatCameAsTheBrokerWentIsNotUsedAfterwards) {
  Script nothing;
  World world(nothing, unitB());
  const Peer peer(world);
  world.time.at(900 * MS, [&] { world.bus->set_connected(false); });
  peer.fix(1000 * MS, 1);
  world.time.at(1500 * MS, [&] { world.bus->set_connected(true); });
  EXPECT_THAT(cadence(world.run(4)), ElementsAre(std::pair(2700, 2), std::pair(3699, 2)));
}

/// The real threads: the frames come from one, the service runs on another. Each is a second after the one
/// before, whatever the time between them.
TEST(CanInput, FastFramesArePublishedWithTheirDateTheLastOneAlways) {
  using namespace std::chrono_literals;
  constexpr uint64_t MIDNIGHT_US = 1'774'224'000'000'000;  // 23 March 2026
  constexpr int64_t SHORTEST_TIME_OUT_US = 900 * MS;
  Script nothing;
  World world(nothing, {.hasgnss = "false", .real_time = true});
  uint64_t second = 0;
  const auto inject_next = [&] {
    ++second;
    const char time[] = {static_cast<char>(second % 60 * 4), static_cast<char>(second / 60 % 60),
                         static_cast<char>(second / 3600)};
    world.inject(topic::TD_RX, std::string(time, sizeof time) + "\x03\x5C\x29\xFF\xFF");
  };
  const auto is_last_published = [&] {
    const auto published = world.published();
    return !published.empty() && published.back().data.utc_time_us() == MIDNIGHT_US + second * 1'000'000;
  };
  std::thread service([&] { world.service->run(); });
  EXPECT_TRUE(test::eventually(
      [&] {
        world.inject(topic::P2C1_RX, "\x02\x01\xFF\x4B\x5F\x06\xFF\xFF");
        inject_next();
        return is_last_published();
      },
      10'000));
  int64_t previous_us = 0;
  for (const auto& each : world.published()) previous_us = each.at_us;
  const std::pair<int, std::chrono::microseconds> bursts[] = {
      {100, 0us}, {300, 0us}, {1000, 0us}, {100, 500us}, {1000, 500us}, {20'000, 0us}, {20'000, 0us}};
  for (const auto& [frames, gap] : bursts) {
    world.bus->clear_records();
    for (int i = 0; i < frames; ++i) {
      inject_next();
      if (gap > 0us) std::this_thread::sleep_for(gap);
    }
    EXPECT_TRUE(test::eventually(is_last_published, 10'000)) << frames << " frames";
    int undated = 0;
    for (const auto& [at_us, data] : world.published()) {
      undated += !data.has_utc_time_us() && at_us - previous_us < SHORTEST_TIME_OUT_US ? 1 : 0;
      previous_us = at_us;
    }
    EXPECT_EQ(undated, 0) << frames << " frames";
  }
  world.service->stop();
  service.join();
}

}  // namespace
