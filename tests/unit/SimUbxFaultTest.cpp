#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "unit/SimUbxHost.h"

namespace ecu::koru::sim {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

TEST(SimUbx, KeepsWhatWasSavedOverPowerCycles) {
  const std::string ports = "01000000", messages = "02000000", none = "00000000";
  const struct {
    const char* reset_to;
    std::string save;  // sections and devices
    const char* antenna_flags;
    unsigned baud;
    bool power;  // else the reset line
    bool gst, vtg;
  } cases[] = {
      {"", none + "07", "1B00", 38400, true, true, false},
      {"", ports + "07", "1B00", 57600, true, true, false},
      {"", "FFFFFFFF07", "0E00", 57600, false, false, false},
      {"9600", none + "07", "1B00", 9600, true, false, true},    // as new
      {"9600", none + "07", "1B00", 38400, false, true, false},  // the battery keeps the options' settings
      {"9600", messages + "02", "1B00", 9600, true, false, false},
  };
  for (const auto& c : cases) {
    Host host(c.reset_to[0] != 0 ? "reset-to=" + std::string(c.reset_to) : "seed=1");
    host.listen(300'000);
    host.ask("0601F007000000000000");  // GST off
    host.ask("06130E00F0B9");
    host.ask("060001000000C008000000E100000700030000000000");
    host.receiver.set_host_baud(57600);
    EXPECT_THAT(host.ask("060900000000" + c.save.substr(0, 8) + none + c.save.substr(8)),
                Contains("05010609"));
    c.power ? host.receiver.power_cycle(host.now_us) : host.receiver.hardware_reset(host.now_us);
    EXPECT_FALSE(host.receiver.running());
    EXPECT_EQ(host.receiver.baud(), 57600U);  // until it starts
    host.read_until(host.now_us + 400'000);
    EXPECT_EQ(host.receiver.baud(), c.baud) << c.save;
    host.receiver.set_host_baud(c.baud);
    EXPECT_THAT(host.ask("0613", 2'700'000), Contains("0613" + std::string(c.antenna_flags) + "F0B9"));
    EXPECT_EQ(host.kinds().find("GST") != std::string::npos, c.gst) << c.save << c.power;
    EXPECT_EQ(host.kinds().find("VTG") != std::string::npos, c.vtg) << c.save << c.power;
  }
  Host host;  // clear and load: as from the factory, but at its own speed until the line has drained
  EXPECT_THAT(host.ask("0609FFFFFFFF00000000FFFFFFFF07", 60'000), Contains("05010609"));
  EXPECT_EQ(host.receiver.baud(), 9600U);
}

TEST(SimUbx, WatchesTheAntenna) {
  const struct {
    AntennaState state;
    bool inverted, fix;
    int flags;
    int status, power;
  } cases[] = {
      {AntennaState::ok, true, true, 0x1F, 4, 1},
      {AntennaState::open, true, false, 0x1F, 2, 1},
      {AntennaState::ok, false, true, 0x1F, 2, 1},
      {AntennaState::open, true, false, 0x1B, 2, 1},  // not looked for
      {AntennaState::short_circuit, true, false, 0x1F, 3, 0},
      {AntennaState::ok, true, false, 0x0E, 1, 0},
  };
  for (const auto& c : cases) {
    ReceiverOptions options;
    options.antenna_inverted = c.inverted;
    Host host(options);
    host.receiver.set_antenna(c.state);
    host.ask("0613" + digits_of({static_cast<char>(c.flags), 0}) + "F0B9", 900'000);
    EXPECT_THAT(host.ask("0A09").at(0).substr(4 + 2 * 20, 4),
                "0" + std::to_string(c.status) + "0" + std::to_string(c.power))
        << c.flags;
    EXPECT_EQ(host.sentences.at(0).find(",A,") != std::string::npos, c.fix) << c.flags;
    EXPECT_TRUE(host.ask("0121").at(0).ends_with(c.fix ? "37" : "00")) << c.flags;
  }
}

TEST(SimUbx, StopsSleepsAndStarts) {
  Host host;
  EXPECT_THAT(host.ask("060400000800", 900'000), IsEmpty());  // no acknowledgement
  host.listen(5 * second_us);
  EXPECT_EQ(host.kinds(), "");
  EXPECT_EQ(host.ask("0A28").size(), 1U);  // but it talks
  host.ask("060400000900", 2'900'000);
  EXPECT_THAT(host.kinds(), StartsWith("RMC GGA"));
  EXPECT_EQ(host.receiver.statistics().sentences_overrun, 0U);  // what was not solved is not made up for

  const std::string forever = "024100000000000000000600000000000000";
  host.ask(forever, 90'000);
  EXPECT_FALSE(host.receiver.running());
  EXPECT_THAT(host.ask("0A28", 5 * second_us), IsEmpty());
  EXPECT_EQ(host.receiver.next_byte_us(), INT64_MAX);
  EXPECT_FALSE(host.receiver.finished());
  host.receiver.hardware_reset(host.now_us);
  host.listen(2 * second_us);
  EXPECT_THAT(host.kinds(), StartsWith("RMC GGA"));
}

TEST(SimUbx, FailsAsItIsTold) {
  Host refuses("nak=0624,nak=0A28");
  EXPECT_THAT(refuses.ask("0624"), ElementsAre("05000624"));
  EXPECT_THAT(refuses.ask("0A28"), ElementsAre("05000A28"));
  EXPECT_EQ(refuses.ask("0608").size(), 2U);
  EXPECT_THAT(Host("nak=all").ask("060001000000C0080000802500000700030000000000"), ElementsAre("05000600"));

  Host next("newer");
  EXPECT_THAT(next.ask("063E"), ElementsAre("0500063E"));
  EXPECT_EQ(next.ask("0600").size(), 2U);
  EXPECT_THAT(next.ask("0A09"), IsEmpty());

  Host mute("mute");
  EXPECT_THAT(mute.ask("0600"), IsEmpty());
  EXPECT_EQ(mute.kinds(), "RMC GGA GSA GSA GST");
  mute.receiver.set_mute(false);
  EXPECT_EQ(mute.ask("0600").size(), 2U);

  Host late("late=3000");
  late.listen(200'000);
  EXPECT_THAT(late.ask("0600", 2'990'000), IsEmpty());
  late.listen(200'000);
  EXPECT_EQ(late.frames.size(), 2U);

  Host loses("lose=0.5");
  size_t answered = 0;
  for (int i = 0; i < 400; ++i) answered += loses.ask("0A28", 100'000).size();
  EXPECT_NEAR(static_cast<double>(answered), 200, 40);
  EXPECT_EQ(loses.receiver.statistics().frames_lost, 400 - answered);

  Host garbage("garbage-ubx=0.5");  // listen() looks at every frame
  garbage.listen(100 * second_us);
  EXPECT_NEAR(static_cast<double>(garbage.frames.size()), 250, 50);
  EXPECT_EQ(garbage.sentences.size(), 500U);
  EXPECT_TRUE(
      std::any_of(garbage.frames.begin(), garbage.frames.end(), [](auto& f) { return f.size() > 300; }));

  for (const char* text : {"drop", "drop=1.1", "drop=nan", "drop=0.1x", "drop=0,drop=0", "silence=5@5",
                           "seed=-1", "mute=1", "nak=624", "nak=xyzz", "late=60001", "power-cycle@-1",
                           "reset-to=9601", "antenna=lost", "antenna=ok@x"})
    EXPECT_THROW((void)parse_faults(text), std::invalid_argument) << text;
}

TEST(SimUbx, SurvivesAHostThatWritesNoise) {
  Host host;
  Random random(5);
  for (int i = 0; i < 50; ++i) {
    std::string noise(1000, '\0');
    for (char& c : noise) c = static_cast<char>(random.below(256));
    host.write(noise);
    host.read_until(host.now_us + 3 * second_us);
  }
  EXPECT_TRUE(host.receiver.running());
}

}  // namespace
}  // namespace ecu::koru::sim
