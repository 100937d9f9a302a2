// Recordings and figures of satnav-tap, with the built programs.
#include <cmath>
#include <future>

#include "support/Envelope.h"
#include "support/Frames.h"
#include "support/Http.h"
#include "support/RecordedBus.h"
#include "system/SatnavdTest.h"

using namespace test;
using namespace testing;
using nlohmann::json;

namespace {

constexpr int EPOCHS = 600;  // ten minutes
constexpr int FIRST_WITHOUT_FIX = 200;
constexpr int WITHOUT_FIX = 5;

std::string digits(const char* format, double value) {
  char out[40];
  std::ignore = std::snprintf(out, sizeof out, format, value);
  return out;
}

/// Returns the bytes of a drive to the north east: RMC, GGA, GSA and GST each second.
std::string drive() {
  std::string out;
  for (int i = 0; i < EPOCHS; ++i) {
    const bool fix = i < FIRST_WITHOUT_FIX || i >= FIRST_WITHOUT_FIX + WITHOUT_FIX;
    const int second = 36000 + i;
    const int clock = second / 3600 * 10000 + second / 60 % 60 * 100 + second % 60;
    const std::string time = digits("%06.0f", clock);
    const std::string place =
        digits("%.4f,N,0", 4808.2292 + i * 0.003) + digits("%.4f,E,", 1134.5672 + i * 0.005);
    out +=
        nmea("GNRMC," + time + (fix ? ",A," + place : ",V,,,,,") + "19.4,63.0,211126,,," + (fix ? "A" : "N"));
    out += nmea("GNGGA," + time + (fix ? "," + place + "1,09,0.9,519.2" : ",,,,,0,00,99.9,") + ",M,,M,,");
    out += nmea(fix ? "GNGSA,A,3,01,02,03,,,,,,,,,,1.6,0.9,1.3" : "GNGSA,A,1,,,,,,,,,,,,,99.9,99.9,99.9");
    out += nmea("GNGST," + time + (fix ? ",1,,,,1,1,2" : ",,,,,,,"));
  }
  return out;
}

/// Returns satnav-tap's JSON lines from this member on: "arrival_ns" follows the time, "topic" both times.
/// Every message counts as a live one.
std::vector<std::string> contents(const std::string& lines, const std::string& from) {
  std::vector<std::string> out;
  std::istringstream input(lines);
  for (std::string line; std::getline(input, line);) {
    const size_t retained = line.find("\"retained\":true");
    if (retained != std::string::npos) line.replace(retained + 11, 4, "false");
    out.push_back(line.substr(line.find('"' + from + '"')));
  }
  return out;
}

const std::string VARIABLE = "0901001200040000001101000000000000000a026e32";  // an RtSignal "n2"

class TapRecordingTest : public SatnavdTest {
 protected:
  /// Starts satnav-tap, which has subscribed when this returns.
  [[nodiscard]] static std::unique_ptr<Process> tap(Words options, const Broker& at) {
    options.insert(options.begin(), "satnav-tap");
    auto process = std::make_unique<Process>(tool(options, at));
    const std::string name = "SUBSCRIBE from satnav-tap-" + std::to_string(process->pid());
    EXPECT_TRUE(eventually([&] { return occurrences(at.log(), name) >= 3; }, PATIENCE_MS)) << process->err();
    return process;
  }
  /// Runs satnav-tap without a broker and returns its output.
  static std::string read(const std::string& recording, Words options, int status = 0) {
    options.insert(options.begin(), {program("satnav-tap"), "--read", recording});
    Process process(options);
    EXPECT_EQ(process.wait_for_exit(PATIENCE_MS), status) << process.err();
    return process.out();
  }
  /// Publishes a recording on another broker, whose listener must get the same messages.
  void expect_replayed(const std::string& recording, const std::string& live) const {
    Broker bench;
    ASSERT_TRUE(bench.start());
    const auto listener = tap({"--json"}, bench);
    Process replay(tool({"satnav-tap", "--replay", recording, "--speed", "10"}, bench));
    ASSERT_EQ(replay.wait_for_exit(PATIENCE_MS), 0) << replay.err();
    const auto expected = contents(live, "topic");
    EXPECT_EQ(replay.out(),
              "satnav-tap: " + std::to_string(expected.size()) + " messages published, 0 dropped\n");
    EXPECT_TRUE(
        eventually([&] { return occurrences(listener->out(), "\n") >= expected.size(); }, PATIENCE_MS));
    EXPECT_EQ(contents(listener->out(), "topic"), expected);
    Process later(tool({"satnav-tap", "--json", "--count", "1", "--topic", "system/var/hasgnss"}, bench));
    EXPECT_EQ(later.wait_for_exit(PATIENCE_MS), 0);
    EXPECT_TRUE(json::parse(later.out())["retained"]);
  }
};

}  // namespace

// Ten minutes of driving, as fast as the port can carry them. Whatever works live must give the same from a
// recording.
TEST_F(TapRecordingTest, ADriveIsTheSameFromARecording) {
  const auto recording = folder / "drive.rec";
  publish_unit({"--var", "hwversion=zpt"});
  const auto live = tap({"--record", recording, "--json"}, broker);
  const auto can = tap({"--can-log", folder / "live.can", "--summary", "--json"}, broker);
  const auto port = free_port();
  const auto metrics = tap({"--prometheus", std::to_string(port)}, broker);
  const auto simulator =
      receiver({"--replay", folder.write("log", drive()), "--speed", "70", "--baud", "115200"});
  const auto service = satnavd("baud_rate = 115200\nhealth_topic = system/gnss/health\n");
  const std::string last = digits("%06.0f", 100959);
  ASSERT_TRUE(live->wait_for_output("GNRMC," + last, 3 * PATIENCE_MS)) << service->err();
  EXPECT_TRUE(eventually(
      [&] { return get(port, "/metrics").find("satnavd_state{state=\"VALID\"} 1") != std::string::npos; },
      PATIENCE_MS));
  for (auto* process : {service.get(), metrics.get(), can.get(), live.get()}) expect_end(*process, SIGINT);

  EXPECT_EQ(std::filesystem::status(recording).permissions(), std::filesystem::perms(0600));
  EXPECT_EQ(contents(read(recording, {"--json"}), "arrival_ns"), contents(live->out(), "arrival_ns"));
  read(recording, {"--can-log", folder / "read.can"});
  const auto frames = [](const std::string& log) {
    std::vector<std::string> out;
    std::istringstream input(log);
    for (std::string line; std::getline(input, line);) out.push_back(line.substr(line.find(' ')));
    return out;
  };
  EXPECT_GE(frames(text_of(folder / "live.can")).size(), 5 * size_t{EPOCHS - WITHOUT_FIX});
  EXPECT_EQ(frames(text_of(folder / "read.can")), frames(text_of(folder / "live.can")));

  const json sums[] = {json::parse(can->out()), json::parse(read(recording, {"--summary", "--json"}))};
  for (const auto& sum : sums) {
    EXPECT_EQ(sum["fixes"]["statuses"]["3"]["count"], EPOCHS - WITHOUT_FIX) << sum;
    EXPECT_EQ(sum["fixes"]["statuses"]["2"]["count"], WITHOUT_FIX) << sum;
    EXPECT_EQ(sum["undecodable"], 0);
    EXPECT_GE(sum["groups"]["due"], EPOCHS - WITHOUT_FIX - 1);
    for (const char* group : {"VP1", "VP2", "VDS", "TD", "P2C1"})
      EXPECT_EQ(sum["groups"][group]["missed"], 0) << sum;
    EXPECT_NEAR(sum["position"]["reference"]["latitude"], 48.1521, 0.001);
    // Half of a straight drive lies within a quarter of its length of the mean, here 600 times 5.6 and 6.2 m.
    EXPECT_NEAR(sum["position"]["cep50_m"], EPOCHS * std::hypot(5.56, 6.21) / 4, 50);
    EXPECT_LT(sum["delay_ms"]["median"], 1000);
  }
  expect_replayed(recording, live->out());
}

TEST_F(TapRecordingTest, LostGroupsAndTimesWithoutAFixAreInTheSummary) {
  ecu::koru::pb::GnssData fix;
  fix.set_latitude(48);
  fix.set_longitude(11);
  std::string text = RECORDING_HEADER;
  for (int i = 1; i <= 60; ++i) {
    fix.set_status(i == 1 || (i > 20 && i <= 30) ? 2 : 3);
    fix.set_utc_time_us(1'795'256'130'000'000 + static_cast<uint64_t>(i) * 1'000'000);
    const auto group = envelopedSignal(std::string(8, '\x10'));
    text += line_of_recording(i * S, "system/gnss/data", enveloped(fix));
    text += line_of_recording(i * S + 1, "rt/j1939can/tx/vp1_local", group);
    if (i != 40 && i != 41) text += line_of_recording(i * S + 2, "rt/j1939can/tx/td_local", group);
  }
  text += line_of_recording(61 * S, "system/gnss/data", "00");
  const auto recording = folder.write("x.rec", text);
  const auto sum = read(recording, {"--summary", "--reference", "48.0001,11"});
  for (const char* part :
       {"61.0 s, 179 messages: 1 undecodable, 0 of an unknown type",
        "system/gnss/data: 1 bytes are too short", "60, 49 valid (81.67 %), 11 warning (18.33 %)",
        "after 2.000 s", "1 of more than 1.5 s without a valid fix, together 11.000 s, the longest 11.000 s",
        "CEP50 11.12 m, CEP95 11.12 m", "59 due", "VP1   60, 0.984 a second, 0 missed",
        "TD    58, 0.951 a second, 2 missed", "P2C1  none came"})
    EXPECT_THAT(sum, HasSubstr(part));
}

TEST_F(TapRecordingTest, AReplayGoesOnWhenTheBrokerIsBack) {
  std::string text = RECORDING_HEADER;
  for (int i = 1; i <= 20; ++i) text += line_of_recording(i * S / 20, "system/var/a", VARIABLE);
  const auto recording = folder.write("x.rec", text);
  Process replay(tool({"satnav-tap", "--replay", recording, "--loop"}, broker));
  Process listener(tool({"satnav-tap", "--topic", "system/var/a"}, broker));
  ASSERT_TRUE(listener.wait_for_output("value=n2", PATIENCE_MS));
  broker.stop();  // the client comes back a second later at the earliest
  ASSERT_TRUE(broker.start());
  Process again(tool({"satnav-tap", "--topic", "system/var/a"}, broker));
  EXPECT_TRUE(again.wait_for_output("value=n2", PATIENCE_MS));
  expect_end(replay, SIGINT);
  EXPECT_THAT(replay.out(),
              ContainsRegex("^satnav-tap: [1-9][0-9]* messages published, [1-9][0-9]* dropped\n"));
}

TEST_F(TapRecordingTest, TheRecordingOfARunThatWasKilledCanBeRead) {
  const auto recording = folder / "x.rec";
  auto killed = tap({"--record", recording}, broker);
  publish_unit();
  ASSERT_TRUE(killed->wait_for_output("hwversion", PATIENCE_MS));
  killed.reset();
  const auto whole = text_of(recording);
  EXPECT_THAT(read(recording, {}), HasSubstr("hwversion"));
  Process process(
      {program("satnav-tap"), "--read", folder.write("cut.rec", whole.substr(0, whole.size() - 9))});
  EXPECT_EQ(process.wait_for_exit(PATIENCE_MS), 0);
  EXPECT_THAT(process.err(), HasSubstr("cut.rec ends in the middle of line"));
  EXPECT_EQ(occurrences(process.out(), "\n") + 1, occurrences(read(recording, {}), "\n"));
}

TEST_F(TapRecordingTest, FailuresAreExplained) {
  const auto good =
      folder.write("good.rec", RECORDING_HEADER + line_of_recording(S, "system/var/a", VARIABLE, true));
  const auto broken = folder.write(
      "broken.rec", RECORDING_HEADER + "x\n" + line_of_recording(S, "system/var/a", VARIABLE, true));
  const auto twice = folder.write("twice.rec", text_of(good) + text_of(good));
  const auto other = folder.write("other.rec", "(1795256130.245112) can0 18FEF31C#00\n");
  const auto link = folder / "link";
  std::filesystem::create_symlink(folder / "nowhere", link);
  const auto hard_link = folder / "hard";
  std::filesystem::create_hard_link(good, hard_link);
  const auto port = std::to_string(free_port());
  const int taken = listen_on(static_cast<uint16_t>(std::stoi(port)));
  const auto nobody =
      folder.write("nobody.conf", "connect_timeout_ms = 300\nport = " + std::to_string(free_port()) + "\n");
  const struct {
    std::string command;  // after satnav-tap
    int status;
    std::string said;  // on standard error
    std::string out;
  } rows[] = {
      {"--read " + broken, 1, broken + " line 2: this is not a JSON object\n", "value=n2"},
      {"--replay " + broken + " --port " + std::to_string(broker.port()), 1, broken + " line 2: this is",
       "1 messages published, 0"},
      {"--read " + other, 1, other + " line 1: this is not the header of a recording\n", ""},
      {"--read /no/file", 1, "satnav-tap: cannot read /no/file: No such file", ""},
      {"--read " + folder.path().string(), 1, ": Is a directory", ""},
      {"--read " + good + " --record " + other, 1,
       "cannot write " + other + ": File exists; --force replaces it", ""},
      {"--read " + good + " --force --export csv " + hard_link, 2, "--read and --export are the same file",
       ""},
      {"--read - --force --can-log " + good + " < " + hard_link, 2, "--read and --can-log are", ""},
      {"--read " + good + " >> " + good, 2, "--read and standard output are the same file", ""},
      {"--read " + good + " --record /dev/null --export csv /dev/null --force", 0, "", "value=n2"},
      {"--read " + good + " --record " + link, 1, "cannot write " + link + ": File exists", ""},
      {"--read " + good + " --record " + link + " --force", 1, "cannot write " + link + ": Too many levels",
       ""},
      {"--read " + good + " --record " + broken + " --force && grep -c value " + broken, 1, "", "value=n2"},
      {"--read " + twice, 1, twice + " line 3: another recording begins here", "value=n2"},
      {"--read " + good + " --record " + folder.path().string() + "/closed >&-; wc -l < " +
           folder.path().string() + "/closed",
       0, "", "2\n"},
      {"--read - < " + good, 0, "", "value=n2"},
      {"--replay /dev/stdin --port " + std::to_string(broker.port()) + " < " + good, 0, "",
       "1 messages published"},
      {"--config " + nobody + " --record none --can-log can --export csv csv; ls none can csv | wc -l", 0,
       "no connection to the broker", "0\n"},
      {"--config " + nobody + " --force --record " + other + " --export csv " + broken + "; wc -l < " +
           broken,
       0, "no connection to the broker", "2\n"},
      {"--read " + other + " --force --can-log " + good + "; wc -l < " + good, 0, "line 1: this is not",
       "2\n"},
      {"--port " + std::to_string(broker.port()) + " --prometheus " + port, 1,
       "satnav-tap: cannot listen on 127.0.0.1:" + port + ": Address already in use\n", ""},
  };
  for (const auto& row : rows) {
    Process process({"bash", "-c", program("satnav-tap") + " " + row.command});
    EXPECT_EQ(process.wait_for_exit(PATIENCE_MS), row.status) << row.command << process.err();
    EXPECT_THAT(process.err(), HasSubstr(row.said)) << row.command;
    EXPECT_THAT(process.out(), HasSubstr(row.out)) << row.command;
  }
  EXPECT_EQ(text_of(other), "(1795256130.245112) can0 18FEF31C#00\n");
  EXPECT_FALSE(std::filesystem::exists(folder / "nowhere"));
  close(taken);
}

namespace {

/// Serves the figures of a unit whose health has another topic.
class MetricsTest : public TapRecordingTest {
 protected:
  void SetUp() override {
    TapRecordingTest::SetUp();
    publish_unit();
    m_unit = start_unit();
    m_server = tap({"--prometheus", std::to_string(port), "--health-topic", "unit/health"}, broker);
    ecu::koru::pb::GnssHealth health;
    health.set_state(ecu::koru::pb::GnssHealth::NO_FIX);
    health.set_version("1 \"2\"");
    health.set_bytes_received(12345);
    m_unit->write_stdin("raw unit/health " + hex(enveloped(health)) + "\n");
    ASSERT_TRUE(eventually([&] { return get(port, "/metrics").find("satnavd_state") != std::string::npos; },
                           PATIENCE_MS));
  }
  void TearDown() override { expect_end(*m_server, SIGINT); }

  const uint16_t port = free_port();

 private:
  std::unique_ptr<Process> m_unit;
  std::unique_ptr<Process> m_server;
};

}  // namespace

TEST_F(MetricsTest, ServesSeveralClientsAndSilentOnes) {
  const int silent = connect_to(port);
  const int half = connect_to(port);
  std::ignore = send(half, "GET /met", 8, MSG_NOSIGNAL);
  const int first = connect_to(port);
  const int second = connect_to(port);
  const std::string request = "GET /metrics HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n";
  EXPECT_THAT(answer(second, request), HasSubstr("satnavd_received_bytes_total 12345\n"));
  EXPECT_THAT(answer(first, request),
              AllOf(StartsWith("HTTP/1.1 200 "), HasSubstr("satnav_tap_broker_connected 1\n"),
                    HasSubstr("satnav_longest_fix_gap_seconds 0\n"), HasSubstr("text/plain; version=0.0.4")));
  EXPECT_THAT(get(port, "/"), StartsWith("HTTP/1.1 404 "));
  EXPECT_THAT(answer(connect_to(port), std::string(20'000, 'x')), Not(HasSubstr(" 200 ")));
  EXPECT_THAT(answer(connect_to(port),
                     "POST /metrics HTTP/1.1\r\nContent-Length: 99999\r\nConnection: close\r\n\r\n"),
              Not(HasSubstr(" 200 ")));
  EXPECT_THAT(get(port, "/metrics"), HasSubstr("satnavd_state{state=\"NO_FIX\"} 1\n"));
  for (const int socket : {silent, half}) close(socket);
}

TEST_F(MetricsTest, EndTheConnectionsOfSlowClients) {
  const int slow[] = {connect_to(port), connect_to(port), connect_to(port), connect_to(port)};
  for (const int socket : slow) std::ignore = send(socket, "GET /metrics HTTP/1.1\r\n", 23, MSG_NOSIGNAL);
  auto scraped = std::async(std::launch::async, [this] { return get(port, "/metrics"); });
  for (const int socket : slow) {
    EXPECT_TRUE(eventually([&] { return send(socket, "X: a\r\n", 6, MSG_NOSIGNAL) < 0; }, PATIENCE_MS));
    close(socket);
  }
  EXPECT_THAT(scraped.get(), StartsWith("HTTP/1.1 200 "));
}

// Prometheus' own program checks names, units and form.
TEST_F(MetricsTest, PassPromtool) {
  if (!std::filesystem::exists("/usr/bin/promtool")) GTEST_SKIP() << "promtool is not installed";
  const auto response = get(port, "/metrics");
  Process promtool({"promtool", "check", "metrics"});
  promtool.write_stdin(response.substr(response.find("\r\n\r\n") + 4));
  promtool.close_stdin();
  EXPECT_EQ(promtool.wait_for_exit(PATIENCE_MS), 0) << promtool.err() << promtool.out() << response;
}
