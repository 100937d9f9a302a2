// The run loop in receiver mode: which frames leave when, whatever the receiver does.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

#include "platform/PbInternalMessageAdapter.h"
#include "platform/Topics.h"
#include "scenario/World.h"

namespace {

using namespace ecu::koru;
using namespace test;
using testing::ElementsAre;

constexpr int64_t MS = 1000;
constexpr int64_t S = 1'000'000;

/// (time in ms, status, sentences) of each message.
using Row = std::tuple<int64_t, int, int>;
std::vector<Row> rows(const std::vector<Published>& published) {
  std::vector<Row> out;
  out.reserve(published.size());
  for (const auto& [at_us, data] : published) out.emplace_back(at_us / MS, data.status(), data.nmea_size());
  return out;
}

TEST(RunLoop, PublishesOneMessagePerCompleteEpochWithTheValuesOfItsSentences) {
  Script script;
  for (int s = 1; s <= 3; ++s) script.add(s * S - 700 * MS, epoch(s));
  World world(script);
  const auto published = world.run(2.9);
  EXPECT_THAT(rows(published), ElementsAre(Row(300, 3, 5), Row(1300, 3, 5), Row(2300, 3, 5)));
  const pb::GnssData& fix = published.at(1).data;
  EXPECT_FLOAT_EQ(fix.latitude(), 48.1173F);
  EXPECT_FLOAT_EQ(fix.longitude(), 11.516667F);
  EXPECT_FLOAT_EQ(fix.speed(), 41.4848F);
  EXPECT_FLOAT_EQ(fix.heading(), 84.4F);
  EXPECT_FLOAT_EQ(fix.altitude(), 545.4F);
  EXPECT_FLOAT_EQ(fix.accuracy(), 3.1F);
  EXPECT_FLOAT_EQ(fix.hdop(), 1.18F);
  EXPECT_FLOAT_EQ(fix.vdop(), 1.54F);
  EXPECT_EQ(fix.num_satellites(), 9);
  EXPECT_EQ(fix.quality(), 1);
  EXPECT_EQ(fix.fix(), 3U);
  EXPECT_EQ(fix.utc_time_us(), 1'774'269'302'000'000U);
  EXPECT_EQ(fix.nmea(4), nmea("GNGST,123502.00,1.5,,,,2.5,3.1,4.0"));
  // 75 bytes of RMC at 38400 baud began to arrive 19 ms before they were read, 1000 s after boot.
  EXPECT_EQ(fix.timestamp_ns(), 1'001'300'000'000U - 19'000'000U);
}

struct Case {
  const char* name;
  std::vector<std::pair<int64_t, std::string>> bursts;
  double seconds;
  std::vector<Row> expected;
};

class FrameTiming : public testing::TestWithParam<Case> {};

TEST_P(FrameTiming, SendsTheseFrames) {
  Script script;
  for (const auto& [at_ms, bytes] : GetParam().bursts) script.add(at_ms * MS, bytes);
  World world(script);
  EXPECT_EQ(rows(world.run(GetParam().seconds)), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    RunLoop, FrameTiming,
    testing::Values(
        // Without a sentence a frame leaves every second, with status 1. The first wait of 100 ms past the
        // second ends it.
        Case{"Silence", {}, 3.5, {Row(1100, 1, 0), Row(2200, 1, 0), Row(3300, 1, 0)}},
        // A burst that comes 3 ms late is no loss.
        Case{"LateBurst",
             {{300, epoch(1)}, {1303, epoch(2)}, {2306, epoch(3)}},
             2.9,
             {Row(300, 3, 5), Row(1303, 3, 5), Row(2306, 3, 5)}},
        // After a complete epoch silence counts from 1.3 s, then from 1.0 s.
        Case{"ReceiverFallsSilent",
             {{300, epoch(1)}},
             4.0,
             {Row(300, 3, 5), Row(1700, 1, 0), Row(2800, 1, 0), Row(3900, 1, 0)}},
        // The epoch without GST is closed 1.3 s after the frame before it.
        Case{"MissingGst",
             {{300, epoch(1)}, {1300, epoch(2, "RMC GGA GSA GSA")}, {2300, epoch(3)}},
             2.9,
             {Row(300, 3, 5), Row(1700, 3, 4), Row(2300, 3, 5)}},
        // Never a GST: each RMC closes the epoch before it.
        Case{"NeverGst",
             {{300, epoch(1, "RMC GGA GSA")},
              {1300, epoch(2, "RMC GGA GSA")},
              {2300, epoch(3, "RMC GGA GSA")}},
             2.5,
             {Row(1300, 3, 3), Row(2300, 3, 3)}},
        // Three sentences with a GST do not make an epoch.
        Case{"ThreeSentences",
             {{300, epoch(1, "RMC GGA GST")}, {1300, epoch(2)}},
             2.0,
             {Row(1300, 3, 3), Row(1300, 3, 5)}},
        // Without RMC there is neither status nor date.
        Case{"MissingRmc",
             {{300, epoch(1)}, {1300, epoch(2, "GGA GSA GSA GST")}},
             1.9,
             {Row(300, 3, 5), Row(1300, 1, 4)}},
        // Two epochs in one read are two messages.
        Case{"BackToBack", {{300, epoch(1) + epoch(2)}}, 1.0, {Row(300, 3, 5), Row(300, 3, 5)}},
        Case{"FourHertz",
             {{300, epoch(1)},
              {550, epoch(1, "RMC GGA GSA GSA GST", 25)},
              {800, epoch(1, "RMC GGA GSA GSA GST", 50)},
              {1050, epoch(1, "RMC GGA GSA GSA GST", 75)},
              {1303, epoch(2)}},
             1.5,
             {Row(300, 3, 5), Row(550, 3, 5), Row(800, 3, 5), Row(1050, 3, 5), Row(1303, 3, 5)}},
        // A satellites field that is no number costs its sentence, not the epoch; a broken checksum likewise.
        Case{"BadSatellites",
             {{300, epoch(1, "RMC") + nmea("GNGGA,123501.00,4807.0,N,01131.0,E,1,x,0.9,545.4,M,46.9,M,,") +
                        nmea("GNGGA,123501.00,4807.0,N,01131.0,E,1,99999999999999999999,0.9,5.4,M,46.9,M,,") +
                        "$GNGGA,123501.00*00\r\n" + epoch(1, "GSA GSA GST")}},
             1.0,
             {Row(300, 3, 4)}}),
    [](const auto& tested) { return tested.param.name; });

TEST(RunLoop, TriesMissingDeviceOnceASecondAndUsesItWhenItAppears) {
  Script script;
  script.add(3200 * MS, epoch(3));
  World world(script);
  world.terminal.missing = true;
  world.time.at(2500 * MS, [&] { world.terminal.missing = false; });
  const auto published = world.run(3.5);
  EXPECT_THAT(rows(published),
              ElementsAre(Row(1000, 1, 0), Row(2000, 1, 0), Row(3000, 1, 0), Row(3200, 3, 5)));
  EXPECT_THAT(world.terminal.opens_us, ElementsAre(0, 1 * S, 2 * S, 3 * S));
}

TEST(RunLoop, UnpluggedDeviceIsReopenedOnceASecondAndNothingOldComesOut) {
  Script script;
  script.add(300 * MS, epoch(1));
  script.add(1200 * MS, epoch(2, "RMC GGA"));  // unplugged in mid-epoch
  script.add(5100 * MS, epoch(5));
  World world(script);
  world.time.at(1250 * MS, [&] { world.terminal.gone = true; });
  world.time.at(4500 * MS, [&] { world.terminal.gone = false; });
  const auto published = world.run(5.5);
  ASSERT_GE(published.size(), 4U);
  EXPECT_EQ(published[1].data.nmea_size(), 2);  // what had arrived
  EXPECT_EQ(published.back().data.utc_time_us(), 1'774'269'305'000'000U);
  for (size_t i = 2; i + 1 < published.size(); ++i) EXPECT_EQ(published[i].data.status(), 1) << i;
  for (size_t i = 2; i < world.terminal.opens_us.size(); ++i) {
    EXPECT_GE(world.terminal.opens_us[i] - world.terminal.opens_us[i - 1], 1 * S) << i;
  }
  EXPECT_LT(world.terminal.waits, 200);
}

TEST(RunLoop, SilentReceiverIsReconnectedEveryThreeSeconds) {
  Script script;
  World world(script);
  world.service->disableHardwareInit();
  world.run(10);
  EXPECT_THAT(world.terminal.opens_us,
              ElementsAre(0, testing::Gt(3 * S), testing::Gt(6 * S), testing::Gt(9 * S)));
}

TEST(RunLoop, WhatArrivesWhileGnssIsSwitchedOffIsNoFix) {
  Script script;
  for (int s = 1; s <= 20; ++s) script.add(s * S - 700 * MS, epoch(s));
  World world(script);
  world.service->enableMqttSystemSelection();
  const auto switched = [&](int64_t at_us, char on) {
    world.time.at(at_us, [&world, on] {
      pb::RtSignal body;
      body.set_value(std::string(1, on));
      com::Message message;
      EXPECT_TRUE(com::envelope::wrap(1, body, message));
      world.bus->inject(topic::PARAMETER_GNSS_ON, message);
    });
  };
  switched(1500 * MS, 0);
  switched(14'500 * MS, 1);
  const auto published = world.run(19);
  const auto fixes = std::count_if(published.begin(), published.end(),
                                   [](const Published& each) { return each.data.status() == 3; });
  EXPECT_THAT(fixes, testing::AllOf(testing::Ge(3), testing::Le(6)));
}

TEST(RunLoop, StraySyncByteCostsSecondsAndNoHunt) {
  Script script;
  for (int s = 1; s <= 20; ++s) script.add(s * S - 700 * MS, epoch(s));
  script.add(5 * S, "\xB5");
  World world(script);
  world.service->disableHardwareInit();
  const auto published = world.run(19.5);
  const auto lost = std::count_if(published.begin(), published.end(),
                                  [](const Published& each) { return each.data.status() != 3; });
  EXPECT_LE(lost, 4);
}

TEST(RunLoop, DrivesTheTruthOfTheSimulatedReceiver) {
  for (const int hz : {1, 4, 10}) {
    sim::ReceiverOptions options;
    options.rate_hz = hz;
    options.baud = 115200;
    SimulatedReceiver source(options);
    World world(source, {.baud = 115200});
    world.service->disableHardwareInit();
    const auto published = world.run(60);
    // The last burst of 10 Hz is still under way when the minute is over.
    ASSERT_EQ(published.size(), static_cast<size_t>(hz == 10 ? 599 : 60 * hz));
    for (const auto& [at_us, data] : published) {
      const auto truth = source.receiver.truth_at(static_cast<int64_t>(data.utc_time_us()));
      ASSERT_TRUE(truth);
      EXPECT_NEAR(data.latitude(), truth->latitude_deg, 5e-6);
      EXPECT_NEAR(data.longitude(), truth->longitude_deg, 1e-5);
      EXPECT_NEAR(data.speed(), truth->speed_kmh, 0.001);
      EXPECT_EQ(data.has_heading(), truth->course_deg.has_value());
      EXPECT_NEAR(data.heading(), truth->course_deg.value_or(0), 0.006);
      EXPECT_NEAR(data.altitude(), truth->altitude_m, 0.051);
      EXPECT_EQ(data.num_satellites(), truth->satellites);
      EXPECT_EQ(data.status(), 3);
    }
  }
}

TEST(RunLoop, CorruptedStreamLosesWhatWasCorruptedAndNoMore) {
  sim::ReceiverOptions options;
  options.faults = sim::parse_faults("drop=0.02,corrupt=0.05,split=0.05,silence=10@60,seed=7");
  SimulatedReceiver source(options);
  World world(source);
  world.service->disableHardwareInit();
  const auto published = world.run(600);
  int valid = 0;
  uint64_t sentences = 0;
  for (const auto& [at_us, data] : published) {
    sentences += static_cast<uint64_t>(data.nmea_size());
    if (data.status() != 3) continue;
    ++valid;
    const auto truth = source.receiver.truth_at(static_cast<int64_t>(data.utc_time_us()));
    ASSERT_TRUE(truth);
    if (!data.has_latitude()) continue;
    EXPECT_NEAR(data.latitude(), truth->latitude_deg, 5e-6);
  }
  EXPECT_GT(valid, 400);
  const auto sent = source.receiver.statistics();
  EXPECT_EQ(sentences, sent.sentences_sent - sent.sentences_corrupted);
}

TEST(RunLoop, SetsTheSystemClockOnceFromTheFirstValidTime) {
  struct {
    bool enabled;
    int64_t wall_us;
    bool refused;
    int calls;
  } const cases[]{{false, 0, false, 0},
                  {true, 0, false, 1},
                  {true, 0, true, 1},
                  {true, 1'478'537'337'000'000, false, 1},
                  {true, 1'478'537'338'000'000, false, 0}};
  for (const auto& c : cases) {
    Script script;
    script.add(100 * MS, nmea("GNRMC,123500.00,V,,,,,,,230326,,,N"));
    script.add(300 * MS, epoch(1, "RMC GGA GSA GSA GST", 50));
    script.add(1300 * MS, epoch(2));
    World world(script, {.wall_us = c.wall_us - 300 * MS});
    world.service->setSystemTimeEnabled(c.enabled);
    world.time.clock().refuse_set_wall(c.refused);
    world.run(2);
    EXPECT_EQ(world.time.clock().set_wall_calls(), c.calls);
    if (c.calls == 0 || c.refused) continue;
    EXPECT_EQ(world.time.wall().tv_sec, 1'774'269'303);  // 301.5 at 0.3 s, read at 2 s
  }
}

TEST(RunLoop, TimeZoneIsFollowedAndAnOutageOfTheBusQueuesNothing) {
  Script script;
  for (int s = 1; s <= 4; ++s) script.add(s * S - 700 * MS, epoch(s));
  World world(script);
  world.time.at(1 * S, [&] { world.bus->set_connected(false); });
  world.time.at(3 * S, [&] { world.bus->set_connected(true); });
  EXPECT_THAT(rows(world.run(3.9)), ElementsAre(Row(300, 3, 5), Row(3300, 3, 5)));
  EXPECT_THAT(world.bus->records(), testing::SizeIs(2 * 2));  // position, and time for the unit
  EXPECT_TRUE(world.service);
  world.service.reset();
  EXPECT_THAT(world.bus->unsubscribed(), testing::Contains(topic::TIME_ZONE));
}

}  // namespace
