// Receiver control against the simulated receiver, which carries the commands out.

#include <gtest/gtest.h>

#include "scenario/World.h"

namespace {

using namespace ecu::koru;
using namespace test;

constexpr int64_t S = 1'000'000;

TEST(SimulatedControl, ConfiguresTheReceiverAtAnyRateAndAgainAfterALossOfPower) {
  constexpr int64_t LOST = 450 * S;
  constexpr double FOUND_S = 3 + 4 * 12 + 1;  // missed, four rates in vain, found at the fifth
  constexpr double ANTENNA_ON_S = FOUND_S + 15 + 2 * 12 + 2;  // rate confirmed, both port polls, CFG-ANT
  for (const unsigned baud : {9600U, 19200U, 57600U, 115200U}) {
    SCOPED_TRACE(baud);
    sim::ReceiverOptions options;
    options.power_up_defaults = true;
    options.initial_baud = baud;
    options.antenna_supply = false;
    SimulatedReceiver source(options);
    World world(source);
    const auto& config = world.service->ubloxConfig();
    const auto is_configured = [&] {
      EXPECT_TRUE(config.isPortConfirmed());
      EXPECT_TRUE(config.isInitialised());
      // Only a configured receiver sends GST, and each fix has its accuracy from it.
      EXPECT_TRUE(world.published().back().data.has_accuracy());
      EXPECT_EQ(world.published().back().data.status(), 3);
    };
    world.time.at(LOST, [&] {
      is_configured();
      source.receiver.power_cycle(LOST);
    });
    world.time.at(999 * S, is_configured);
    double found = 0, fix = 0;  // seconds after the loss
    for (const auto& [at_us, data] : world.run(1000)) {
      const double after_s = static_cast<double>(at_us - LOST) / S;
      if (after_s > 1 && found == 0 && data.nmea_size() > 0) found = after_s;
      if (after_s > 1 && fix == 0 && data.status() == 3) fix = after_s;
    }
    EXPECT_GT(found, baud == 9600 ? 40 : 0);
    EXPECT_LE(found, FOUND_S);
    EXPECT_GT(fix, found);
    EXPECT_LE(fix, ANTENNA_ON_S);
    EXPECT_EQ(world.resets.pulses(), 0);
  }
}

}  // namespace
