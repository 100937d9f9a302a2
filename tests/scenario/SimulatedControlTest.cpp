// Receiver control against the simulated receiver, which carries the commands out.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "platform/Topics.h"
#include "scenario/World.h"

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
  constexpr double ANTENNA_ON_S = FOUND_S + 15 + 2 * 12 + 2;  // rate confirmed, both port polls, CFG-ANT
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

TEST(SimulatedControl, TellsWhatTheAntennaHas) {
  using sim::AntennaState;
  SimulatedReceiver source(fromFactory(38400));
  World world(source);
  const auto latest = [&](const std::string& topic) { return world.sentOn(topic).back(); };
  int64_t at = 450 * S;
  for (const auto state :
       {AntennaState::ok, AntennaState::open, AntennaState::short_circuit, AntennaState::ok}) {
    world.time.at(at, [&, state] { source.receiver.set_antenna(state); });
    world.time.at(at += 10 * S, [&, state] {
      EXPECT_EQ(latest(topic::ANTENNA_OPEN_CIRCUIT), std::string(1, state == AntennaState::open ? 1 : 0));
      EXPECT_EQ(latest(topic::ANTENNA_SHORT_CIRCUIT),
                std::string(1, state == AntennaState::short_circuit ? 1 : 0));
    });
  }
  world.run(495);
}

}  // namespace
