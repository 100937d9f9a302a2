// The run loop in receiver mode: which frames leave when, whatever the receiver does.

#include <gmock/gmock.h>

#include <cstdio>
#include <sstream>

#include "app/ApplyConfiguration.h"
#include "platform/com/Topics.h"
#include "scenario/World.h"
#include "sim/gnss/Settings.h"
#include "support/LogCapture.h"
#include "wire/ServiceLog.h"

namespace {

using namespace ecu::koru;
using namespace test;
using namespace testing;

TEST(RunLoop, TriesMissingDeviceOnceASecondAndUsesItWhenItAppears) {
  Script script;
  script.add(3200 * MS, epoch(3));
  World world(script);
  world.terminal.missing = true;
  world.at(2.5, [&] { world.terminal.missing = false; });
  EXPECT_EQ(cadence(world.run(3.5)), "1000:1/0 2000:1/0 3000:1/0 3200:3/5");
  EXPECT_THAT(world.terminal.opens_us, ElementsAre(0, 1 * S, 2 * S, 3 * S));
}

TEST(RunLoop, UnpluggedDeviceIsReopenedOnceASecondAndNothingOldComesOut) {
  Script script;
  script.add(300 * MS, epoch(1));
  script.add(1200 * MS, epoch(2, "RMC GGA"));  // unplugged in mid-epoch
  script.add(5100 * MS, epoch(5));
  World world(script);
  world.at(1.25, [&] { world.terminal.gone = true; });
  world.at(4.5, [&] { world.terminal.gone = false; });
  // The sentences of the interrupted epoch that had arrived are published.
  EXPECT_EQ(cadence(world.run(5.5)), "300:3/5 1300:3/2 2300:1/0 3300:1/0 4300:1/0 5250:3/5");
  EXPECT_THAT(world.terminal.opens_us, ElementsAre(0, 1250 * MS, 2250 * MS, 3250 * MS, 4250 * MS, 5250 * MS));
  EXPECT_LT(world.terminal.waits, 20);
}

TEST(RunLoop, SleepsUntilSomethingIsDueAndStopsAtOnce) {
  const double seconds = 100.0123;
  const struct {
    std::string what, hasgnss, gnss_on;
    bool has_device, hardware_init;
    size_t epochs;  ///< in one piece each
    long waits;     ///< at most
    // A wait for input takes less than a second, and a silent frame a little more: two waits.
  } rows[] = {
      {"silent line", "true", "\1", true, false, 0, 240}, {"receiving", "true", "\1", true, false, 100, 210},
      {"hunting", "true", "\1", true, true, 0, 240},      {"no device", "true", "\1", false, false, 0, 110},
      {"CAN input", "false", "\1", true, false, 0, 110},  {"GNSS off", "true", "\2", true, false, 0, 25}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    Script script;
    for (size_t i = 0; i < row.epochs; ++i)
      script.add((300 + 1000 * static_cast<int64_t>(i)) * MS, epoch(static_cast<int>(i % 60)));
    World world(script, {.hasgnss = row.hasgnss, .hwversion = "zpt", .hardware_init = row.hardware_init});
    world.terminal.missing = !row.has_device;
    world.service->enableMqttSystemSelection();
    world.inject(topic::PARAMETER_GNSS_ON, row.gnss_on);
    world.run(seconds);
    EXPECT_EQ(world.time.now_us(), static_cast<int64_t>(seconds * S));
    EXPECT_LE(world.terminal.waits + world.time.waits, row.waits);
    EXPECT_GE(world.terminal.waits + world.time.waits, row.waits / 2);
  }
}

using Values = std::map<uint32_t, std::string>;

/// Retains system parameters on the bus at the start. `flags` 1: they have an over-the-air id.
void start(World& world, const Values& parameters, uint32_t flags = 1) {
  pb::SystemParameters body;
  for (const auto& [id, value] : parameters) {
    auto& entry = (*body.mutable_entries())[id];
    entry.set_flags(flags);
    entry.set_value(value);
  }
  auto message = enveloped(body);
  message.retained = true;
  world.bus->inject(topic::SYSTEM_PARAMETERS, message);
  world.service->readSysparams();
}

/// Returns the receiver's settings: constellations (GPS 1, GLONASS 2, BeiDou 4, Galileo 8),
/// period, antenna flags.
std::string told(const SimulatedReceiver& source) {
  const sim::Settings& settings = source.receiver.settings();
  char text[40];
  (void)std::snprintf(text, sizeof text, "%X %d ms %02X", sim::monitor_map(settings.constellations()),
                      settings.rate[0] | settings.rate[1] << 8, settings.antenna_flags());
  return text;
}

/// A receiver that was switched on with the unit starts at its default rate. A simulated one does not.
TEST(Parameters, RateOfTheFirstMinutesIsTheDefault) {
  const std::tuple<int64_t, const char*, unsigned> rows[] = {
      {139'999'999'999, "\2", 9600}, {140'000'000'000, "\2", 38400}, {139'999'999'999, "\1", 38400}};
  for (const auto& [boot_ns, simulation, baud] : rows) {
    Script nothing;
    World world(nothing, {.hardware_init = false});
    world.time.boot_offset_ns = boot_ns - world.time.steady_ns();
    start(world, {{0x2045, simulation}});
    world.run(1);
    EXPECT_EQ(world.terminal.bauds.back(), baud) << boot_ns;
  }
}

constexpr double SEQUENCE_S = 400;

TEST(Parameters, OfTheStartReachTheReceiver) {
  const std::tuple<Values, uint32_t, std::string> rows[] = {
      {{}, 1, "3 1000 ms 1F"},
      {{{0xA01F, "\2"}, {0xA060, "\2"}, {0xA09B, "\3"}}, 1, "2 333 ms 0E"},
      {{{0xA020, "\2"}, {0xA022, "\1"}, {0xA09B, "\4"}}, 1, "5 250 ms 1F"},
      {{{0xA021, "\1"}, {0xA060, "\1"}, {0xA09B, "\5"}}, 1, "B 250 ms 1F"},
      {{{0xA020, "\2"}, {0xA060, "\2"}, {0xA09B, "\4"}}, 0xFE, "3 1000 ms 1F"},
      {{{0xA020, ""}, {0xA060, ""}, {0xA09B, ""}}, 1, "3 1000 ms 1F"},
      {{{0xA09B, std::string(1, '\0')}}, 1, "3 1000 ms 1F"},
  };
  for (const auto& [parameters, flags, expected] : rows) {
    SimulatedReceiver source({});
    World world(source);
    start(world, parameters, flags);
    world.run(SEQUENCE_S);
    EXPECT_EQ(told(source), expected);
  }
}

TEST(Parameters, ChangesReachTheReceiver) {
  const std::pair<std::map<std::string, char>, std::string> rows[] = {
      {{{topic::PARAMETER_GPS, 2}, {topic::PARAMETER_BEIDOU, 1}}, "6 1000 ms 1F"},
      {{{topic::PARAMETER_GLONASS, 2}, {topic::PARAMETER_GALILEO, 1}}, "C 1000 ms 1F"},
      {{{topic::PARAMETER_GPS, 1}, {topic::PARAMETER_BEIDOU, 2}}, "9 1000 ms 1F"},
      {{{topic::PARAMETER_GLONASS, 1}, {topic::PARAMETER_GALILEO, 2}}, "3 1000 ms 1F"},
      {{{topic::PARAMETER_ANTENNA_ON, 2}}, "3 1000 ms 0E"},
      {{{topic::PARAMETER_ANTENNA_ON, 1}}, "3 1000 ms 1F"}};
  SimulatedReceiver source({});
  World world(source);
  world.service->enableMqttSystemSelection();
  double at = SEQUENCE_S;
  for (const auto& row : rows) {
    for (const auto& [topic, value] : row.first) world.injectAt(at, topic, std::string(1, value));
    at += SEQUENCE_S;
    world.at(at - 0.1, [&source, &row] { EXPECT_EQ(told(source), row.second); });
  }
  world.injectAt(at, topic::HW_VERSION, "QRX7_2_KW4");  // this version logs an open circuit
  world.at(at, [&] { source.receiver.set_antenna(sim::AntennaState::open); });
  LogCapture log("WARNING");
  world.run(at + 10);
  EXPECT_THAT(log.take(), HasSubstr("to Open circuit\n"));
}

TEST(Parameters, GnssIsSwitchedOffAndOnAtOnceAndNothingOldComesOut) {
  const struct {
    int64_t off_ms, on_ms;  ///< off_ms 0: the parameter at the start switches it off
  } rows[] = {{0, 99'999}, {0, 4999}, {0, 5001}, {1500, 6499}, {1500, 6501}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.on_ms);
    Script script;
    if (row.off_ms > 0) script.add(1400 * MS, epoch(2, "GST RMC GGA"));  // switched off in mid-epoch
    World world(script, {.hwversion = "zpt", .hardware_init = false});
    world.service->enableMqttSystemSelection();
    if (row.off_ms == 0) start(world, {{0xA00F, "\2"}});
    world.injectAt(static_cast<double>(row.off_ms) / 1e3, topic::PARAMETER_GNSS_ON, "\2");
    world.injectAt(static_cast<double>(row.on_ms) / 1e3, topic::PARAMETER_GNSS_ON, "\1");
    std::vector<int64_t> opens_us;
    std::string expected;
    for (int64_t ms = 300; ms < 12'000; ms += 1000) {
      const bool is_first = ms > row.on_ms && ms < row.on_ms + 1000;
      const auto burst =
          epoch(static_cast<int>(ms / 1000), is_first ? "RMC GSA GSA GST" : "RMC GGA GSA GSA GST");
      if (row.off_ms > 0 || ms > row.on_ms) script.add(ms * MS, burst);
      if (ms < row.off_ms || ms > row.on_ms)
        expected += (expected.empty() ? "" : " ") + std::to_string(ms) + (is_first ? ":3/4" : ":3/5");
    }
    if (row.off_ms > 0) opens_us.push_back(0);
    if (row.on_ms < 12'000) opens_us.push_back(row.on_ms * MS);
    const auto published = world.run(12);
    EXPECT_EQ(cadence(published), expected);
    EXPECT_EQ(world.terminal.opens_us, opens_us);
    for (const auto& [at_us, data] : published) {
      EXPECT_EQ(data.has_altitude(), data.nmea_size() == 5);
      // The 75 bytes of RMC began to arrive 19 ms before they were read.
      EXPECT_EQ(data.timestamp_ns(), static_cast<uint64_t>(at_us * 1000 + 1'000'000'000'000 - 19'000'000));
    }
    EXPECT_EQ(world.sentOn(topic::VP1_TX).size(), published.size());
  }
}

TEST(Parameters, LogFlagsAreOneToFourBytesTheLowestFirst) {
  Script nothing;
  World world(nothing);
  world.service->enableLoggingControl();
  const std::pair<std::string, unsigned> rows[] = {{"\x40", 0x40},
                                                   {"\x01\x20", 0x2001},
                                                   {"\x02\x03\x04", 0x40302},
                                                   {"\x05\x06\x07\x88", 0x88070605},
                                                   {"", 0x88070605},
                                                   {"\1\2\3\4\5", 0x88070605}};
  for (const auto& [value, flags] : rows) {
    world.inject(topic::LOG_CONFIG, value);
    EXPECT_EQ(gpspub::GnssUtils::logFlags(), flags);
  }
  gpspub::GnssUtils::setLogFlags(0);
}

TEST(SimulatedControl, ConfiguresTheReceiverAtAnyRateAndAgainAfterALossOfPower) {
  constexpr double LOST_S = 450;
  // The loss is noticed, four rates fail, the fifth is confirmed, both port polls and CFG-ANT follow.
  constexpr double ANTENNA_ON_S = LOST_S + 3 + 4 * 12 + 1 + 15 + 2 * 12 + 2;
  for (const unsigned baud : {9600U, 115200U}) {
    SCOPED_TRACE(baud);
    sim::ReceiverOptions options;
    options.power_up_defaults = true;
    options.initial_baud = baud;
    options.antenna_supply = false;
    SimulatedReceiver source(options);
    World world(source);
    const auto is_configured = [&] {
      EXPECT_TRUE(world.service->ubloxConfig().isInitialised());
      // Only a configured receiver sends GST, and each fix has its accuracy from it.
      EXPECT_TRUE(world.published().back().data.has_accuracy());
      EXPECT_EQ(world.published().back().data.status(), 3);
    };
    world.at(LOST_S - 0.1, is_configured);
    world.at(LOST_S, [&] { source.receiver.power_cycle(static_cast<int64_t>(LOST_S * S)); });
    world.at(999, is_configured);
    double fix = 0;
    for (const auto& [at_us, data] : world.run(1000)) {
      const double at_s = static_cast<double>(at_us) / S;
      if (at_s > LOST_S + 1 && fix == 0 && data.status() == 3) fix = at_s;
    }
    EXPECT_GT(fix, LOST_S + (baud == 9600 ? 40 : 0));
    EXPECT_LE(fix, ANTENNA_ON_S);
    EXPECT_EQ(world.resets.pulses(), 0);
  }
}

TEST(RunLoop, SetsTheSystemClockOnceFromTheFirstValidTimeWhenTheFileSaysSo) {
  const struct {
    std::string file;
    int64_t wall_us;
    bool refused;
    int calls;
  } rows[] = {{"", 0, false, 0},
              {"set_system_time = TRUE", 0, false, 0},
              {"set_system_time = true", 0, false, 1},
              {"set_system_time = 1", 0, true, 1},
              {"set_system_time = 1", 1'478'537'337'000'000, false, 1},
              {"set_system_time = 1", 1'478'537'338'000'000, false, 0}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.file);
    Script script;
    script.add(100 * MS, nmea("GNRMC,123500.00,V,,,,,,,230326,,,N"));
    script.add(300 * MS, epoch(1, "RMC GGA GSA GSA GST", 50));
    script.add(1300 * MS, epoch(2));
    World world(script, {.wall_us = row.wall_us - 300 * MS});
    auto config = std::make_unique<config::Configuration>();
    std::istringstream file(row.file);
    config::set_config_from_input(config, file);
    gpspub::registerKeys(*config);
    gpspub::applyConfiguration({}, gpspub::readSettings(*config), *world.service);
    world.time.clock().refuse_set_wall(row.refused);
    world.run(2);
    EXPECT_EQ(world.time.clock().set_wall_calls(), row.calls);
    if (row.calls == 0 || row.refused) continue;
    EXPECT_EQ(world.time.wall().tv_sec, 1'774'269'303);  // set to 301.5 at 0.3 s, read at 2 s
  }
}

}  // namespace
