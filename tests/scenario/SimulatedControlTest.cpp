// Receiver control against the simulated receiver, which carries the commands out.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "scenario/World.h"
#include "sim/gnss/UbxText.h"

namespace {

using namespace ecu::koru;
using namespace test;

constexpr int64_t S = 1'000'000;

sim::ReceiverOptions fromFactory(unsigned baud) {
  sim::ReceiverOptions options;
  options.power_up_defaults = true;
  options.initial_baud = baud;
  options.antenna_supply = false;
  return options;
}

/// Seconds from `since_us` to the first message that `wanted` accepts; -1 when there is none.
double firstAfter(const std::vector<Published>& published, int64_t since_us,
                  bool (*wanted)(const pb::GnssData&)) {
  for (const auto& [at_us, data] : published) {
    if (at_us > since_us && wanted(data)) return static_cast<double>(at_us - since_us) / S;
  }
  return -1;
}

/// The commands that the receiver hears, each once however often it was repeated.
struct CommandTrace final : sim::IReceiverObserver {
  void on_command(int64_t /*at_us*/, const sim::UbxFrame& frame, bool intact) override {
    const std::string text = sim::describe(frame);
    const std::string words = text.substr(0, text.find(" len ") - 6);  // without class and id
    if (!intact) corrupted++;
    if (commands.empty() || commands.back() != words) commands.push_back(words);
  }
  std::vector<std::string> commands;
  int corrupted = 0;
};

TEST(SimulatedControl, TheTraceShowsTheWholeConfiguration) {
  SimulatedReceiver source(fromFactory(38400));
  CommandTrace trace;
  source.receiver.set_observer(&trace);
  World world(source);
  world.run(450);
  EXPECT_EQ(trace.corrupted, 0);
  const std::string on = "CFG-ANT flags 0x001F (supply on)";
  EXPECT_THAT(trace.commands,
              testing::ElementsAre(
                  "CFG-PRT poll", "MON-GNSS poll", "CFG-ANT poll", on, "CFG-ANT poll", on, "CFG-ANT poll", on,
                  "CFG-MSG NAV-TIMEUTC every 1", "CFG-MSG GSA every 1", "CFG-MSG GSV every 1",
                  "CFG-MSG RMC every 1", "CFG-MSG GST every 1", "CFG-MSG VTG off", "CFG-MSG GRS off",
                  "CFG-MSG ZDA off", "CFG-MSG GLL off", "CFG-MSG MON-HW every 5", "CFG-GNSS poll", "CFG-RXM",
                  "CFG-NAV5 model 4 fix mode 3", "CFG-MSG GGA every 1", "CFG-NMEA version 4.0",
                  "MON-VER poll", "MON-GNSS poll", "CFG-GNSS poll", "MON-GNSS poll", "CFG-RATE 1000 ms x 1"));
}

TEST(SimulatedControl, FindsTheReceiverAtAnyRateAndConfiguresIt) {
  for (const unsigned baud : {9600U, 19200U, 38400U, 57600U, 115200U}) {
    SimulatedReceiver source(fromFactory(baud));
    World world(source);
    bool confirmed = false;
    bool initialised = false;
    world.time.at(449 * S, [&] {
      confirmed = world.service->ubloxConfig().isPortConfirmed();
      initialised = world.service->ubloxConfig().isInitialised();
    });
    const auto published = world.run(450);
    EXPECT_TRUE(confirmed) << baud;
    EXPECT_TRUE(initialised) << baud;
    EXPECT_EQ(world.resets.pulses(), 0) << baud;
    ASSERT_FALSE(published.empty());
    // Only a configured receiver sends GST, and each fix has its accuracy from it.
    EXPECT_TRUE(published.back().data.has_accuracy()) << baud;
    EXPECT_EQ(published.back().data.status(), 3) << baud;
  }
}

TEST(SimulatedControl, ReceiverThatLosesPowerIsFoundAgain) {
  constexpr double FOUND_S = 3 + 4 * 12 + 1;  // missed, four rates in vain, found at the fifth
  constexpr double ANTENNA_ON_S = FOUND_S + 12 + 2 * 12 + 2;  // rate confirmed, both port polls, CFG-ANT
  SimulatedReceiver source(fromFactory(9600));
  World world(source);
  constexpr int64_t LOST = 450 * S;
  world.time.at(LOST, [&] { source.receiver.power_cycle(LOST); });
  bool confirmed = false;
  world.time.at(999 * S, [&] { confirmed = world.service->ubloxConfig().isPortConfirmed(); });
  const auto published = world.run(1000);
  const double found = firstAfter(published, LOST + S, [](const auto& data) { return data.nmea_size() > 0; });
  const double fix = firstAfter(published, LOST + S, [](const auto& data) { return data.status() == 3; });
  EXPECT_GT(found, 40);
  EXPECT_LE(found, FOUND_S);
  EXPECT_GT(fix, found);
  EXPECT_LE(fix, ANTENNA_ON_S);
  EXPECT_TRUE(confirmed);
  EXPECT_TRUE(published.back().data.has_accuracy());
  EXPECT_EQ(world.resets.pulses(), 0);
}

}  // namespace
