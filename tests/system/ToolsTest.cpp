#include "support/Frames.h"
#include "system/SatnavdTest.h"

using namespace test;
using namespace testing;
using nlohmann::json;

namespace {

std::vector<json> json_lines(const std::string& text) {
  std::vector<json> lines;
  std::istringstream input(text);
  for (std::string line; std::getline(input, line);) lines.push_back(json::parse(line));
  return lines;
}

/// Returns "topic body", or "topic retained body" for a retained message.
std::string summary(const json& line) {
  return line.value("topic", "") + (line.value("retained", false) ? " retained " : " ") +
         line.value("body", json(line.value("error", ""))).dump();
}

/// Returns all that a terminal sends until its other end closes.
std::string read_to_end(const std::string& path) {
  const int port = open(path.c_str(), O_RDONLY | O_NOCTTY | O_CLOEXEC);
  std::string text;
  char piece[256];
  for (ssize_t count; (count = read(port, piece, sizeof piece)) > 0;)
    text.append(piece, static_cast<size_t>(count));
  close(port);
  return text;
}

using ToolsTest = test::SatnavdTest;

}  // namespace

TEST_F(ToolsTest, CommandsReachTheBusOnceAndBrokenOnesChangeNothing) {
  const auto file = folder.write("unit.txt", "# a unit\nvar hwversion n2\r\n\ntimezone none\n");
  const auto unit = start_unit({"--no-defaults", "--file", file});
  const auto tap = std::make_unique<Process>(
      tool({"satnav-tap", "--json", "--topic", "#", "--topic", "system/#"}, broker));
  ASSERT_TRUE(tap->wait_for_output("system/sysparams", PATIENCE_MS));
  unit->write_stdin("param 0xA00F 00\nblackout maybe\nblackout off\nlaunch\nraw rt/system/x FF00\n");
  unit->write_stdin("timezone +05:30 summer source=user\nsource can\nlog-config 01000000\nraw systime/td");
  unit->close_stdin();
  ASSERT_TRUE(tap->wait_for_output("systime/td", PATIENCE_MS)) << tap->out();
  EXPECT_TRUE(unit->running()) << "it must not end with its input";
  EXPECT_THAT(unit->err(), AllOf(HasSubstr("ecu-sim: blackout: expected on or off, found 'maybe'\n"),
                                 HasSubstr("ecu-sim: unknown command 'launch'\n")));
  for (auto* process : {unit.get(), tap.get()}) expect_end(*process, SIGINT);
  std::vector<std::string> seen;
  for (const auto& line : json_lines(tap->out())) seen.push_back(summary(line));
  EXPECT_THAT(
      seen,
      UnorderedElementsAre(
          R"(system/var/hwversion retained {"value":"n2"})", R"(system/sysparams retained {"entries":{}})",
          R"(system/sysparams {"entries":{"0x0000A00F":{"flags":1,"value":"00"}}})",
          R"(system/sysparam/0x0000A00F {"value":"00"})", R"(rt/system/blackout_mode {"value":"00"})",
          R"(rt/system/x "2 bytes are too short for the header of 18")",
          R"(system/time/timezone {"hour_offset":5,"minute_offset":30,"source":"USER","summer_time":true})",
          R"(system/gnss/source {"source":"CAN"})", R"(system/gnss/log_config {"value":"01000000"})",
          R"(systime/td "empty payload")"));
  EXPECT_THAT(tap->err(), IsEmpty());
}

TEST_F(ToolsTest, ABridgeJoinsTwoUnits) {
  Broker other;
  ASSERT_TRUE(other.start());
  const auto port = std::to_string(broker.port());
  Process bridge({program("ecu-sim"), "--bridge", "127.0.0.1:" + port + "/a",
                  "127.0.0.1:" + std::to_string(other.port()), "--delay", "50"});
  ASSERT_TRUE(bridge.wait_for_output("carrying 5 groups from 127.0.0.1:" + port + "/a to", PATIENCE_MS));
  Process tap(tool({"satnav-tap", "--json", "--topic", "rt/#"}, other));
  const auto unit = start_unit();
  const std::string envelope = " 09 0100 1200 0A000000 11 0102030405060708 0A08";
  const auto command = "raw a/rt/oemcan/tx/p2c1_local FF\nraw a/rt/j1939can/tx/vp1_local" + envelope +
                       "949ADC99D0144576\nraw a/rt/oemcan/tx/p2c1_local" + envelope + "030103B46B04FFFF\n";
  ASSERT_TRUE(eventually(  // until the bridge has subscribed
      [&] {
        unit->write_stdin(command);
        return tap.wait_for_output("p2c1_fb", 200);
      },
      PATIENCE_MS));
  const auto lines = json_lines(tap.out());
  EXPECT_EQ(summary(lines[0]), R"(rt/j1939can/rx/vp1_fb {"value":"949adc99d0144576"})");
  EXPECT_EQ(lines[0]["group"]["signals"]["latitude"]["value"], 48.137154);
  EXPECT_EQ(summary(lines[1]), R"(rt/oemcan/rx/p2c1_fb {"value":"030103b46b04ffff"})");
  EXPECT_NE(lines[1]["envelope"]["timestamp_ns"], 0x0807060504030201);
  expect_end(bridge, SIGINT);
  EXPECT_THAT(bridge.out(),
              ContainsRegex("P2C1 [^ ]* -> [^ ]*: [1-9] carried, 0 lost, 0 dropped, [1-9] malformed\n"));
}

TEST_F(ToolsTest, ARecordingThatLostItsCrIsPlayedAsItIsOrRepaired) {
  const std::string cut = "$GNRMC,123520.00,V,,,,,,,230326,,,N,V*6",
                    whole = nmea("GNGGA,123520.00,,,,,0,,,,M,,M,,"),
                    other = ubx(0x01, 0x07, "$GNTXT\n$GNTXT\r\n") + "$GN\x07\n\n", tail = "$GNGST";
  const auto recording = [&](const std::string& end) { return cut + end + other + whole + cut + end + tail; };
  const auto log = folder.write("log", recording("\n"));
  const struct {
    Words options;
    std::string end;
    Matcher<std::string> said;
  } rows[] = {{{}, "\n", HasSubstr("gnss-sim: " + log + ": 2 of 3 lines end with LF alone, which no")},
              {{"--crlf"}, "\r\n", Not(HasSubstr("LF alone"))}};
  for (const auto& row : rows) {
    Words options{"--replay", log, "--speed", "10", "--seconds", "20"};
    options.insert(options.end(), row.options.begin(), row.options.end());
    const auto simulator = receiver(options);
    EXPECT_EQ(read_to_end(device), recording(row.end));
    EXPECT_EQ(simulator->wait_for_exit(PATIENCE_MS), 0);
    EXPECT_THAT(simulator->err(), row.said);
  }
}

TEST_F(ToolsTest, ARouteIsDescribedAndItsFaultsCanBeSwitched) {
  const auto route = folder.write("route.gpx",
                                  R"(<gpx><trkpt lat="48" lon="10"/><trkpt lat="48.01" lon="10"><ele>500</ele>
                                     </trkpt></gpx>)");
  const auto simulator = receiver(
      {"--rate", "10", "--route", route, "--show", "--fault", "drop=1", "--utc", "2026-11-21T10:15:30Z"});
  EXPECT_THAT(simulator->err(),
              HasSubstr("route.gpx: 1.11 km in 80.1 s at 50.0 km/h, then straight back to the "
                        "start, 1.11 km at the mean speed of 50.0 km/h; again and again\n"));
  const int port = open(device.c_str(), O_RDONLY | O_NOCTTY | O_CLOEXEC | O_NONBLOCK);
  ASSERT_TRUE(simulator->wait_for_output("10:15:31.500Z", PATIENCE_MS));
  EXPECT_THAT(simulator->out(), HasSubstr(" 500.0 m accuracy")) << "the elevation before the first one";
  std::string heard(4096, '\0');
  EXPECT_LT(read(port, heard.data(), heard.size()), 0);
  simulator->write_stdin("drop 1.5\ncorrupt 1\ndrop 0\n");
  ASSERT_TRUE(eventually([&] { return read(port, heard.data(), heard.size()) > 0; }, PATIENCE_MS));
  close(port);
  expect_end(*simulator);
  EXPECT_THAT(simulator->err(), AllOf(HasSubstr("gnss-sim: command \"drop 1.5\": 1.5 is not within 0 to 1\n"),
                                      ContainsRegex("[0-9]+ dropped, [1-9][0-9]* corrupted, 0 split")));
}

TEST_F(ToolsTest, FilesAndPortsThatCannotBeUsedAreExplained) {
  const auto file = folder.write("file", "");
  const auto database = folder.write("bad.dbc", "BO_ 1 X: 8 Y\nSG_\n");
  const auto nobody =
      folder.write("nobody.conf", "connect_timeout_ms = 300\nport = " + std::to_string(free_port()) + "\n");
  const auto route = folder.write("route.csv", "48,10,400\n48.01,ten,400\n");
  const auto taken = std::to_string(broker.port());
  const struct {
    Words argv;
    std::string said;  // on standard error
  } rows[] = {
      {{"satnav-tap", "--signal-database", database}, "satnav-tap: signal database "},
      {{"satnav-tap", "--can-log", "/no/folder/file"}, "cannot write /no/folder/file: No such file"},
      {{"satnav-tap", "--export", "csv", "/no/folder/a"}, "cannot write /no/folder/a: No such file"},
      {{"satnav-tap", "--live"}, "satnav-tap: --live needs a terminal as standard output"},
      {{"satnav-tap", "--tcp", taken}, "cannot listen on 127.0.0.1:" + taken + ": Address already in use"},
      {{"satnav-tap", "--pty", file}, "satnav-tap: cannot create the link " + file + ": File exists"},
      {{"satnav-tap", "--pty", "/no/folder/gps"}, "cannot create the link /no/folder/gps: No such file"},
      {{"satnav-tap", "--config", nobody}, "satnav-tap: no connection to the broker at 127.0.0.1:"},
      {{"ecu-sim", "--config", nobody}, "ecu-sim: no connection to the broker at 127.0.0.1:"},
      {{"gnss-sim", "--route", route}, "route.csv:2: column lon is not a number: ten"},
      {{"gnss-sim", "--link", file}, "file: File exists"},
  };
  for (auto [argv, said] : rows) {
    argv[0] = program(argv[0]);
    Process process(argv);
    EXPECT_EQ(process.wait_for_exit(PATIENCE_MS), 1) << argv[1];
    EXPECT_THAT(process.err(), HasSubstr(said));
  }
}
