#include "support/Envelope.h"
#include "support/PtyScreen.h"
#include "support/RecordedBus.h"
#include "system/SatnavdTest.h"

using namespace test;
using namespace testing;

namespace {

using LiveTest = test::SatnavdTest;

}  // namespace

TEST_F(LiveTest, ShowsTheUnitOnTheTerminalAndFollowsItsKeys) {
  const auto simulator = receiver({"--baud", "38400", "--utc", "2026-11-21T10:15:00Z"});
  const auto unit = start_unit({"--var", "hwversion=zpt", "--timezone", "+01:30", "--retain-all"});
  const auto service = satnavd("baud_rate = 38400\nhealth_topic = system/gnss/health\n");
  PtyScreen screen;
  Process tap(screen.launched(tool({"satnav-tap", "--live"}, broker), {"LC_ALL=C.UTF-8"}));
  for (const auto* part : {" VALID  status 3, valid  3D  GNSS  18 satellites ", "valid fix after",
                           "Latitude      48.3", "Altitude      480.0 m", "  +01:30", " * GPS      11 ",
                           " * GLONASS  69 ", "\xE2\x96\x88\xE2\x96\x88", "Module error  no "})
    EXPECT_TRUE(screen.shows(part)) << part << '\n' << screen.text();
  EXPECT_TRUE(screen.was_colored());

  const struct {
    std::string_view key, part;
  } pages[] = {{"2", "GPS 10 of 10, GLONASS 8 of 8 used"},
               {"3", "  navmodegnss_base 3D "},
               {"\x1B[D", "GPS 10 of 10"},
               {"4", " rt/j1939can/tx/vp1_local "}};
  for (const auto& [key, part] : pages) {
    screen.type(key);
    EXPECT_TRUE(screen.shows(part)) << key << '\n' << screen.text();
  }

  Tap fixes(broker);
  screen.type(" ");
  EXPECT_TRUE(screen.shows("PAUSED"));
  const std::string paused = screen.text();
  EXPECT_TRUE(fixes.gets(2, VALID));
  EXPECT_EQ(screen.text(), paused);
  screen.type(" ");
  EXPECT_TRUE(screen.shows("PAUSED", false));
  EXPECT_TRUE(eventually([&] { return screen.text() != paused; }, PATIENCE_MS));

  screen.resize(100, 30);
  EXPECT_TRUE(eventually([&] { return screen.text().find("q quit") / 101 == 29; }, PATIENCE_MS))
      << "the keys are in the last row\n"
      << screen.text();
  screen.resize(79, 24);
  EXPECT_TRUE(screen.shows("this is 79x24.")) << screen.text();
  screen.resize(80, 24);
  EXPECT_TRUE(screen.shows(" rt/j1939can/tx/vp1_local "));

  broker.stop();
  EXPECT_TRUE(screen.shows("the broker is away")) << screen.text();
  screen.type("1");
  EXPECT_TRUE(screen.shows("SILENT  no message of the position for ")) << screen.text();
  ASSERT_TRUE(broker.start());
  EXPECT_TRUE(screen.shows("the broker is away", false)) << screen.text();
  EXPECT_FALSE(screen.shows("Connection lost", true, 0)) << "a record on the screen";
  EXPECT_TRUE(screen.shows("status 3, valid")) << screen.text();

  EXPECT_FALSE(screen.is_as_before());
  screen.type("q");
  EXPECT_EQ(tap.wait_for_exit(PATIENCE_MS), 0);
  EXPECT_TRUE(screen.is_as_before());
  EXPECT_EQ(screen.unknown(), "");
}

// Its clock, ages and rates are those of the recording, whose player waits as long as the screen is paused.
TEST_F(LiveTest, PlaysARecordingAndStaysAfterItsEnd) {
  ecu::koru::pb::GnssData fix;
  fix.set_status(VALID);
  std::string text = RECORDING_HEADER;
  for (const int s : {1, 2, 3, 13}) text += line_of_recording(s * S, "system/gnss/data", enveloped(fix));
  text += line_of_recording(40 * S, "system/var/a", envelopedSignal("1"));
  const auto recording = folder.write("a drive with a long name.rec", text);
  PtyScreen screen;
  screen.type("p");
  Process tap(screen.launched({program("satnav-tap"), "--live", "--read", recording, "--speed", "40"}));
  EXPECT_TRUE(screen.shows(" satnav-tap  a drive with a long na~  recording  PAUSED 2026-11-21 10:1"))
      << screen.text();
  EXPECT_FALSE(screen.shows("RECORDING ENDED", true, 1200)) << screen.text();
  screen.type("p");
  for (const auto* part :
       {" satnav-tap  a drive with a long name~  RECORDING ENDED 2026-11-21 10:16:10 UTC",
        "Rate          0.2 Hz, longest gap 10 s", "SILENT  no message of the position for 27 s"})
    EXPECT_TRUE(screen.shows(part)) << part << '\n' << screen.text();
  screen.type("4");
  EXPECT_TRUE(screen.shows(" system/gnss/data                           4   0.2")) << screen.text();
  screen.type("q");
  EXPECT_EQ(tap.wait_for_exit(PATIENCE_MS), 0);
  EXPECT_TRUE(screen.is_as_before());
}

TEST_F(LiveTest, AFailureIsReportedBelowTheScreen) {
  const auto recording = folder.write("x.rec", RECORDING_HEADER);
  PtyScreen screen;
  Process tap(screen.launched(
      {program("satnav-tap"), "--live", "--read", recording, "--record", "/dev/full", "--force"}));
  EXPECT_TRUE(screen.shows("\nsatnav-tap: cannot write /dev/full: No space left on device")) << screen.text();
  EXPECT_EQ(tap.wait_for_exit(PATIENCE_MS), 1);
}

TEST_F(LiveTest, EndsWithItsTerminalAndUsesNoColorIfAsked) {
  const auto unit = start_unit();
  for (const bool no_color : {true, false}) {
    PtyScreen screen;
    const auto argv = tool({"satnav-tap", "--live"}, broker);
    Process tap(screen.launched(argv, {"LC_ALL=C", no_color ? "NO_COLOR=1" : "NO_COLOR="}));
    EXPECT_TRUE(screen.shows("no message of the position yet"));
    EXPECT_EQ(screen.was_colored(), !no_color);
    screen.hang_up();
    EXPECT_EQ(tap.wait_for_exit(PATIENCE_MS), 0);
  }
}

TEST_F(LiveTest, EndsWhileItsTerminalTakesNoOutput) {
  PtyScreen screen;
  Process tap(screen.launched(tool({"satnav-tap", "--live"}, broker)));
  EXPECT_TRUE(screen.shows("no message of the position yet"));
  screen.type("\x13");  // Ctrl-S
  tap.signal(SIGTERM);
  EXPECT_EQ(tap.wait_for_exit(PATIENCE_MS), 0);
  EXPECT_TRUE(screen.is_as_before());
}

TEST_F(LiveTest, LinesFitTheTerminalAndChangesComeOnce) {
  const auto unit = start_unit();
  PtyScreen screen;
  const Words argv = tool({"satnav-tap", "--changes", "--topic", "system/var/#"}, broker);
  Process tap(screen.launched(argv));
  const std::string command = "var x " + std::string(100, 'x') + "\nvar y ";
  EXPECT_TRUE(screen.shows("hwversion"));
  for (const auto* value : {"1\n", "1\n", "2\n"}) unit->write_stdin(command + value);
  EXPECT_TRUE(screen.shows("value=2"));
  EXPECT_EQ(occurrences(screen.text(), "value=xxx"), 1U) << screen.text();
  EXPECT_EQ(occurrences(screen.text(), "value=1"), 1U);
  EXPECT_THAT(screen.text(), HasSubstr("\n    value=xxx")) << "it begins a line, indented";
  expect_end(tap, SIGINT);
}
