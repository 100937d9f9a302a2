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
    return topic != "system/gnss/health" && topic != "system/time/timezone" &&
           topic != "rt/system/blackout_mode" && !topic.starts_with("system/var/") &&
           !topic.starts_with("system/sysparam");
  });
  return messages;
}

/// Returns the first difference of two sessions; empty if there is none.
std::string difference(const std::vector<json>& then, const std::vector<json>& now) {
  const auto stamp = [](const json& line) { return line["envelope"]["timestamp_ns"].get<int64_t>(); };
  for (size_t i = 0; i < std::min(then.size(), now.size()); ++i) {
    const json one = comparable(then[i]);
    const json other = comparable(now[i]);
    if (other != one) return one.dump().append("\nnow: ").append(other.dump());
    const int64_t later = stamp(now[i]) - stamp(then[i]);
    if (std::abs(later) > S / 2)
      return one.dump().append("\nnow later by ").append(std::to_string(later)).append(" ns");
  }
  if (then.size() == now.size()) return {};
  return std::to_string(then.size()) + " messages, now " + std::to_string(now.size());
}

class ReplayTest : public test::SatnavdTest {
 protected:
  /// Records a session of the whole unit, which says `commands` once there are fixes. Returns the messages of
  /// satnavd.
  std::vector<json> record(int seconds, const std::string& commands = {}) {
    const auto unit = start_unit({"--var", "hwversion=zpt", "--param", "0xA09B=01"});
    Tap tap(broker, "#", {"--record", bus, "--force"});
    const auto simulator = receiver({"--fault",
                                     "drop=0.05,corrupt=0.05,late=120,lose=0.2,nak=0624,garbage-ubx=0.05,"
                                     "power-cycle@4,seed=7"});
    const auto service = satnavd(keys + "record_link = " + link + "\n");
    const auto wait = [begin = clock_ns(CLOCK_MONOTONIC)](int64_t ns) {
      EXPECT_TRUE(eventually([&] { return clock_ns(CLOCK_MONOTONIC) - begin >= ns; }, PATIENCE_MS));
    };
    wait(seconds * S / 2);
    unit->write_stdin(commands);
    wait(seconds * S);
    expect_end(*service);
    EXPECT_TRUE(eventually(
        [&] { return !tap.fixes().empty() && tap.fixes().back()["body"].value("state", "") == "STOPPED"; },
        PATIENCE_MS));
    return published(tap.fixes());
  }

  const std::string keys =
      "disable_hw_init = false\nradio_silence_configured = true\nhealth_topic = system/gnss/health\n";
  const std::string link = folder / "link.pcap";
  const std::string bus = folder / "bus.rec";
  const std::string config = folder.write("replay.conf", keys + "record_link = /dev/full\n");

  [[nodiscard]] Words replay(const Words& more = {}) const {
    return joined({program("satnavd-replay"), link, "--bus", bus, "--config", config, "--gnssdevice", device,
                   "--no-reset-line", "--log", "EMERG"},
                  more);
  }
};

/// A host that stands still for half a second at a time-out of the service may have seen another session.
TEST_F(ReplayTest, GivesTheMessagesOfARecordedSession) {
  std::string different;
  for (int i = 0; i < 2; ++i) {
    const std::vector<json> then = record(8, "timezone +05:30 summer\nblackout on\nparam 0xA020 00\n");
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

/// Each figure comes from two modes of the viewer at least, or from the session's own bus.
TEST(RecordedSessions, GiveTheirFixesInEachModeOfTheViewer) {
  const struct {
    std::string name;
    Words unit;
    size_t fixes, valid, gaps;
  } rows[] = {{"city", {}, 100, 45, 2},
              {"tunnel", {"--baudrate", "115200"}, 325, 255, 2},
              {"new-receiver", {}, 97, 72, 2}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const test::TempDir folder;
    const auto output_of = [](const Words& command) {
      Process program(command);
      EXPECT_EQ(program.wait_for_exit(PATIENCE_MS), 0);
      EXPECT_EQ(program.err(), "");
      return program.out();
    };
    const auto recording = folder.write(
        "drive.rec", output_of(joined({test::program("satnavd-replay"), RECORDINGS "/" + row.name + ".pcap",
                                       "--recording", "--strict", "--log", "EMERG", "--var", "hwversion=zpt"},
                                      row.unit)));
    const auto gpx = folder / "gpx", kml = folder / "kml", csv = folder / "csv", can = folder / "can";
    const Words read = {test::program("satnav-tap"), "--read", recording};
    const std::string summary =
        output_of(joined(read, {"--summary", "--export", "gpx", gpx, "--export", "kml", kml, "--export",
                                "csv", csv, "--can-log", can}));
    EXPECT_THAT(summary, HasSubstr("Fixes       " + std::to_string(row.fixes) + ", " +
                                   std::to_string(row.valid) + " valid"));
    EXPECT_THAT(summary, HasSubstr("Gaps        " + std::to_string(row.gaps) + " of more"));
    EXPECT_EQ(occurrences(text_of(csv), "\n"), 1 + row.valid);
    EXPECT_EQ(occurrences(text_of(gpx), "<trkpt "), row.valid);
    EXPECT_EQ(occurrences(text_of(kml), "<when>"), row.valid);
    const size_t groups = occurrences(text_of(can), "\n");
    EXPECT_GT(groups, 400U);
    EXPECT_EQ(groups % 5, 0U) << "five groups a second";
    EXPECT_EQ(occurrences(output_of(joined(read, {"--nmea"})), "RMC,"),
              occurrences(output_of(joined(read, {"--json"})), "RMC,"));
    EXPECT_GE(occurrences(output_of(joined(read, {"--changes"})), "system/gnss/data"), row.valid);
  }
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
  const std::string old = folder.write(
      "old.rec", R"({"format":"satnav-tap recording","version":1,"wall_us":1400000000000000,"boot_ns":1})"
                 "\n");
  const std::vector<Row> rows{
      {{link, "--to", "1", "--strict"}, 0, ""},
      {{cut, "--strict"}, 1, "truncated dump file"},
      {{cut}, 0, "events before are replayed"},
      {{link, link}, 1, link + ": does not go on where the file before it ends"},
      {{link, "--gnsssystem", "1", "--baudrate", "9600"}, 0, "differences from the recording"},
      {{link, "--baudrate", "9600", "--strict"}, 1, "found the port at 9600 bit/s"},
      {{folder / "no.pcap"}, 1, "satnavd-replay: " + (folder / "no.pcap") + ": No such file or directory"},
      {{config}, 1, "unknown file format"},
      {{link, "--config", folder / ""}, 1, "satnavd-replay: cannot read "},
      {{link, "--config", broken}, 1, "the service does not start with it"},
      {{link, "--no-defaults"}, 1, "an ECU variable is missing"},
      {{link, "--var", "hwversion=n2"}, 1, "SPI"},
      {{link, "--bus", folder / "no.rec"}, 1, "cannot read " + (folder / "no.rec")},
      {{link, "--bus", link}, 1, "this is not the header of a recording"},
      {{link, "--bus", old}, 1, old + ": was not recorded at the same time as the link"}};
  for (const Row& row : rows) {
    Process program(joined({test::program("satnavd-replay")}, row.options));
    EXPECT_EQ(program.wait_for_exit(PATIENCE_MS), row.status) << row.says << program.err();
    EXPECT_THAT(program.err(), HasSubstr(row.says));
  }
}

}  // namespace
