// satnavd records a session with the real receiver's simulator, and satnavd-replay gives it again.

#include <cstdlib>

#include "system/SatnavdTest.h"

namespace {

using namespace test;
using namespace testing;
using nlohmann::json;

std::vector<json> json_lines(const std::string& text) {
  std::vector<json> lines;
  std::istringstream input(text);
  for (std::string line; std::getline(input, line);) lines.push_back(json::parse(line));
  return lines;
}

/// Returns a message without the times since boot, which the recording does not know.
json comparable(json line) {
  json& body = line["body"];
  if (body.contains("timestamp_ns")) body["timestamp_ns"] = "some";
  if (line["topic"] == "rt/system/gnss_timestamp_ns") body = "some";
  return {{"topic", line["topic"]}, {"body", body}};
}

/// Leaves out what others publish, and the health, which counts the bytes of an instant between two of them.
std::vector<json> published(const std::vector<json>& lines) {
  std::vector<json> messages;
  std::ranges::copy_if(lines, std::back_inserter(messages), [](const json& line) {
    const std::string topic = line["topic"];
    return topic != "system/gnss/health" && !topic.starts_with("system/var/") &&
           !topic.starts_with("system/sysparam");
  });
  return messages;
}

/// Returns the first difference of two sessions; empty if there is none.
std::string difference(const std::vector<json>& then, const std::vector<json>& now) {
  // The first message was published before the port was opened, so the first fix tells how the clocks differ.
  const auto is_fix = [](const json& line) { return line["body"].value("timestamp_ns", int64_t{0}) != 0; };
  const auto stamp = [](const json& line) { return line["envelope"]["timestamp_ns"].get<int64_t>(); };
  const auto first = std::ranges::find_if(then, is_fix);
  if (first == then.end()) return "no fix then";
  const auto fix = static_cast<size_t>(first - then.begin());
  for (size_t i = 0; i < std::min(then.size(), now.size()); ++i) {
    const json one = comparable(then[i]);
    const json other = comparable(now[i]);
    if (other != one) return one.dump().append("\nnow: ").append(other.dump());
    const int64_t apart = stamp(now[i]) - stamp(now.at(fix)) - (stamp(then[i]) - stamp(then[fix]));
    if (std::abs(apart) > S / 10)
      return one.dump().append("\nnow later by ").append(std::to_string(apart)).append(" ns");
  }
  if (then.size() == now.size()) return {};
  return std::to_string(then.size()) + " messages, now " + std::to_string(now.size());
}

class ReplayTest : public test::SatnavdTest {
 protected:
  /// Records a session of the whole unit. Returns the messages of satnavd.
  std::vector<json> record(double seconds) {
    publish_unit({"--var", "hwversion=zpt", "--param", "0xA09B=01"});
    Tap bus(broker, "#");
    const auto simulator = receiver({"--fault",
                                     "drop=0.05,corrupt=0.05,late=120,lose=0.2,nak=0624,garbage-ubx=0.05,"
                                     "power-cycle@4,seed=7"});
    const auto service =
        satnavd("disable_hw_init = false\nhealth_topic = system/gnss/health\nrecord_link = " + link + "\n");
    const int64_t end = clock_ns(CLOCK_MONOTONIC) + static_cast<int64_t>(seconds * S);
    EXPECT_TRUE(eventually([&] { return clock_ns(CLOCK_MONOTONIC) >= end; }, PATIENCE_MS));
    expect_end(*service);
    EXPECT_TRUE(eventually(
        [&] { return !bus.fixes().empty() && bus.fixes().back()["body"].value("state", "") == "STOPPED"; },
        PATIENCE_MS));
    return published(bus.fixes());
  }

  const std::string link = folder / "link.pcap";
  const std::string config =
      folder.write("replay.conf", "health_topic = system/gnss/health\nrecord_link = /dev/full\n");
  const Words unit{"--config",     config, "--var",           "hwversion=zpt", "--param", "0xA09B=01",
                   "--gnssdevice", device, "--no-reset-line", "--log",         "EMERG"};

  [[nodiscard]] Words replay(const Words& more = {}) const {
    Words argv{program("satnavd-replay"), link};
    argv.insert(argv.end(), unit.begin(), unit.end());
    argv.insert(argv.end(), more.begin(), more.end());
    return argv;
  }
};

/// Where a byte comes close to one of the service's deadlines, a slow host decides which was first. So the
/// test fails only if no session out of several comes back.
TEST_F(ReplayTest, GivesTheMessagesOfARecordedSession) {
  constexpr int SESSIONS = 5;
  std::string different;
  for (int i = 0; i < SESSIONS; ++i) {
    const std::vector<json> then = record(8);
    ASSERT_GT(then.size(), 20U);
    Process program(replay({"--strict"}));
    const int status = program.wait_for_exit(PATIENCE_MS).value_or(-1);
    different = difference(then, published(json_lines(program.out())));
    if (status != 0 || !program.err().empty())
      different += " status " + std::to_string(status) + program.err();
    if (different.empty()) return;
  }
  FAIL() << different;
}

TEST_F(ReplayTest, SaysWhatItCannotUse) {
  record(2);
  struct Row {
    Words options;
    int status;
    std::string says;
  };
  const std::string bytes = text_of(link);
  const std::string cut = folder.write("cut.pcap", bytes.substr(0, bytes.size() - 5));
  const std::string broken = folder.write("broken.conf", "no key\n");
  const std::vector<Row> rows{
      {{link, "--to", "1", "--strict"}, 0, ""},
      {{cut, "--strict"}, 1, "truncated dump file"},
      {{cut}, 0, "events before are replayed"},
      {{link, "--gnsssystem", "1", "--baudrate", "9600"}, 0, "differences from the recording"},
      {{link, "--baudrate", "9600", "--strict"}, 1, "found the port at 9600 bit/s"},
      {{folder / "nothing.pcap"},
       1,
       "satnavd-replay: " + (folder / "nothing.pcap") + ": No such file or directory"},
      {{config}, 1, "unknown file format"},
      {{link, "--config", folder / ""}, 1, "satnavd-replay: cannot read "},
      {{link, "--config", broken}, 1, "the service does not start with it"},
      {{link, "--no-defaults"}, 1, "an ECU variable is missing"},
      {{link, "--var", "hwversion=n2"}, 1, "SPI"},
      {{}, 2, "recording is required"},
      {{link, "--at", "soon blackout on"}, 2, "not a time and a command"},
      {{link, "--at", "1 blackout maybe"}, 2, "expected on or off"},
      {{link, "--topic", "a/#/b"}, 2, "not an MQTT topic filter"},
      {{link, "--log", "LOUD"}, 2, "not a level"}};
  for (const Row& row : rows) {
    Words argv{program("satnavd-replay")};
    argv.insert(argv.end(), row.options.begin(), row.options.end());
    Process program(argv);
    EXPECT_EQ(program.wait_for_exit(PATIENCE_MS), row.status) << row.says << program.err();
    EXPECT_THAT(program.err(), HasSubstr(row.says));
  }

  // Its output may end too.
  std::string command;
  for (const std::string& word : replay()) command += "'" + word + "' ";
  for (const auto& [end, status, says] :
       {std::tuple(">/dev/full", 1, "satnavd-replay: cannot write: No space left on device"),
        {"| head -n 1 >&2; exit ${PIPESTATUS[0]}", 0, "\"topic\":\"system/gnss/health\""}}) {
    Process shell({"bash", "-c",
                   command + (std::string(end) == ">/dev/full" ? "" : "--topic system/gnss/health ") + end});
    EXPECT_EQ(shell.wait_for_exit(PATIENCE_MS), status) << end << shell.err();
    EXPECT_THAT(shell.err(), HasSubstr(says));
  }
}

}  // namespace
