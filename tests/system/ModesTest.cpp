// How each mode of the programs ends, or goes on, when something is wrong around it: its options, the reader
// of its output, the disk, the broker.
#include "support/Envelope.h"
#include "support/Frames.h"
#include "support/Http.h"
#include "support/RecordedBus.h"
#include "system/SatnavdTest.h"

using namespace test;
using namespace testing;
using nlohmann::json;

namespace {

/// Returns a recording of the bus whose lines do not fit into a pipe: a fix and a group each second.
std::string long_recording() {
  constexpr int SECONDS = 600;
  std::string text = RECORDING_HEADER;
  ecu::koru::pb::GnssData fix;
  fix.set_status(VALID);
  fix.set_longitude(11);
  fix.add_nmea(nmea("GPTXT," + std::string(200, 'x')));
  for (int i = 1; i <= SECONDS; ++i) {
    fix.set_latitude(48 + static_cast<float>(i) / SECONDS);
    fix.set_utc_time_us(1'795'256'130'000'000 + static_cast<uint64_t>(i) * 1'000'000);
    text += line_of_recording(i * S, "system/gnss/data", enveloped(fix));
    text += line_of_recording(i * S + 1, "rt/j1939can/tx/vp1_local", envelopedSignal(std::string(8, '\x10')));
  }
  return text;
}

/// A table's row is a command of the shell. In its folder are recordings of the bus and of a link, a
/// configuration and a description of a unit; $PORT is the broker's port, and $FREE one that nobody listens
/// on.
class ModesTest : public SatnavdTest {
 protected:
  void SetUp() override {
    SatnavdTest::SetUp();
    folder.write("bus.rec", long_recording());
    folder.write("unit.conf", "var_timeout_ms = 200\nport = " + std::to_string(broker.port()) + "\n");
    folder.write("notes", "48,10,400\n");
    std::filesystem::create_symlink(RECORDINGS "/city.pcap", folder / "link.pcap");
  }

  [[nodiscard]] std::unique_ptr<Process> shell(const std::string& command) const {
    // `closed` runs a program after the reader of its output has gone away.
    return std::make_unique<Process>(
        Words{"bash", "-c",
              R"(closed() { mkfifo gate$$; { read -r < gate$$; "$@"; } | { exec <&-; echo > gate$$; }
                            return ${PIPESTATUS[0]}; }
                 PATH=)" +
                  program("") + ":$PATH PORT=" + std::to_string(broker.port()) +
                  " FREE=" + std::to_string(port) + "\n" + command + "\nexit ${PIPESTATUS[0]}"},
        folder.path());
  }
  [[nodiscard]] std::vector<std::string> files() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder.path()))
      names.push_back(entry.path().filename());
    std::ranges::sort(names);
    return names;
  }

  const uint16_t port = free_port();
};

/// Returns the name of the program in a command.
std::string program_of(const std::string& command) {
  const std::string rest = command.substr(command.starts_with("closed ") ? 7 : 0);
  return rest.substr(0, rest.find(' '));
}

}  // namespace

TEST_F(ModesTest, AWrongOptionIsExplainedAndNothingIsWritten) {
  const struct {
    std::string command;
    std::string_view said;
  } rows[] = {
      {"satnav-tap --topic a/#/b", "not an MQTT topic filter: a/#/b"},
      {"satnav-tap --config notes", "notes is not a configuration"},
      {"satnav-tap --prometheus 9100 --json", "--prometheus excludes --json without --summary"},
      {"satnav-tap --prometheus 9100 --changes", "--prometheus excludes --changes"},
      {"satnav-tap --live --json", "--live excludes --json"},
      {"satnav-tap --nmea --json", "--nmea excludes --json"},
      {"satnav-tap --pty ''", "--pty: "},
      {"satnav-tap --tcp [::1]:0", "not [ADDRESS:]PORT with a numeric address: [::1]:0"},
      {"satnav-tap --export gpx a --export kml ./a", "--export and --export are the same file: a"},
      {"satnav-tap --read bus.rec --record bus.rec --force",
       "--read and --record are the same file: bus.rec"},
      {"satnav-tap --read bus.rec --speed nan", "--speed: not a number"},
      {"satnav-tap --read bus.rec --loop", "--loop requires --replay"},
      {"satnav-tap --read bus.rec --host x", "--read excludes --host"},
      {"satnav-tap --speed 2", "--speed requires --read or --replay"},
      {"satnav-tap --replay bus.rec --read bus.rec", "--replay excludes --read"},
      {"satnav-tap --summary --reference 48", "not a position such as"},
      {"satnav-tap --reference 48,11", "--reference requires --summary or --prometheus"},
      {"satnav-tap --summary --nmea", "--nmea excludes --summary"},
      {"satnav-tap --prometheus 999.1.1.1:9100", "--prometheus: not [ADDRESS:]PORT with a numeric address"},
      {"satnav-tap --prometheus 9100 --health-topic a/#", "not an MQTT topic: a/#"},
      {"satnav-tap --can-log x --source-address FF", "not an address from 00 to FE: FF"},
      {"gnss-sim --fault drop=1.5", "fault drop: 1.5 is not within 0 to 1"},
      {"gnss-sim --replay link.pcap --trace x", "--trace does not go with the recording of a link"},
      {"ecu-sim --var hasgnss", "--var: expected NAME=TEXT, found 'hasgnss'"},
      {"ecu-sim --param 0xA00F", "--param: expected ID=HEX[:nootaid], found '0xA00F'"},
      {"ecu-sim --param 0xA00F=:nootaid", "param: expected bytes in hex after the"},
      {"ecu-sim --file notes", "notes line 1: unknown command '48,10,400'"},
      {"ecu-sim --bridge localhost localhost:0", "expected HOST[:PORT][/PREFIX]"},
      {"ecu-sim --bridge localhost localhost --keep", "--keep is not for --bridge"},
      {"satnavd-replay link.pcap --bus bus.rec --var hwversion=zpt", "--var excludes --bus"},
      {"satnavd-replay link.pcap --at 'soon blackout on'", "not a time and a command"},
      {"satnavd-replay link.pcap --at '1 blackout maybe'", "expected on or off"},
      {"satnavd-replay link.pcap --from 5 --to 2", "--to: is before --from"},
      {"satnav-check --gnssdevice x", "--gnssdevice requires --live"},
      {"satnav-check --config /no/file", "cannot read /no/file"},
      {"satnav-check --live --config .", "cannot read ."},
  };
  const auto before = files();
  for (const auto& [command, said] : rows) {
    const auto process = shell(command);
    EXPECT_EQ(process->wait_for_exit(PATIENCE_MS), 2) << command;
    EXPECT_THAT(process->err(), AllOf(HasSubstr(program_of(command) + ": "), HasSubstr(said))) << command;
    EXPECT_EQ(process->out(), "") << command;
  }
  EXPECT_EQ(files(), before);
}

// Where the reader of the messages goes away, the run is over. A simulator goes on, because others need it.
TEST_F(ModesTest, AClosedPipeEndsThemQuietly) {
  const auto played = ContainsRegex("^gnss-sim: [0-9]+ epochs [^\n]*\n(gnss-sim: [^\n]*\n)*$");
  const struct {
    std::string command;
    int status = 0;
    Matcher<std::string> said = IsEmpty();  // on standard error
  } rows[] = {
      {"satnav-tap --port $PORT | head -n 1"},
      {"satnav-tap --port $PORT --json | head -n 1"},
      {"satnav-tap --port $PORT --changes | head -n 1"},
      {"satnav-tap --port $PORT --nmea | head -n 1"},
      {"satnav-tap --port $PORT --tcp $FREE --pty gps | head -n 1"},
      {"satnav-tap --port $PORT --export gpx a.gpx --export kml a.kml --export csv a.csv | head -n 1"},
      {"satnav-tap --port $PORT --record a.rec --can-log a.can | head -n 1"},
      {"closed satnav-tap --port $PORT --summary"},
      {"closed satnav-tap --port $PORT --prometheus $((FREE + 1))"},
      {"closed satnav-tap --port $PORT --replay bus.rec"},
      {"satnav-tap --read bus.rec | head -n 1"},
      {"satnav-tap --read bus.rec --json | head -n 1"},
      {"satnav-tap --read bus.rec --changes | head -n 1"},
      {"satnav-tap --read bus.rec --nmea | head -n 1"},
      {"closed satnav-tap --read bus.rec --summary"},
      {"closed gnss-sim --seconds 0.1", 0, played},
      {"gnss-sim --seconds 0.5 --rate 10 --show --trace - | head -n 2", 0, played},
      {"closed gnss-sim --seconds 0.1 --replay link.pcap", 0, HasSubstr("not played to its end\n")},
      {"closed ecu-sim --port $PORT"},
      {"closed ecu-sim --port $PORT --keep <<< $'help\nquit'"},
      {"closed ecu-sim --bridge 127.0.0.1:$PORT/a 127.0.0.1:$PORT/b --seconds 0.1"},
      {"satnavd-replay link.pcap --log EMERG | head -n 1"},
      {"closed satnav-check --config unit.conf"},
      {"closed satnav-check --config unit.conf --json"},
      {"closed satnav-check --config unit.conf --live --gnssdevice /no/device", 1},
  };
  Process bus(tool({"satnav-tap", "--replay", folder / "bus.rec", "--speed", "10"}, broker));
  std::vector<std::unique_ptr<Process>> processes;
  for (const auto& row : rows) processes.push_back(shell(row.command));
  for (size_t i = 0; i < std::size(rows); ++i) {
    const auto& command = rows[i].command;
    EXPECT_EQ(processes[i]->wait_for_exit(PATIENCE_MS), rows[i].status) << command;
    EXPECT_THAT(processes[i]->err(), rows[i].said) << command;
    EXPECT_EQ(processes[i]->out().empty(), command.starts_with("closed ")) << command;
  }
  for (const auto* file : {"a.rec", "a.can", "a.gpx", "a.kml", "a.csv"})
    EXPECT_TRUE(std::filesystem::exists(folder / file)) << file;
  EXPECT_FALSE(std::filesystem::is_symlink(folder / "gps"));
  expect_end(bus, SIGINT);
}

// --prometheus writes neither to a file nor to standard output.
TEST_F(ModesTest, AFullDiskEndsThemWithOneError) {
  const struct {
    std::string command;
    std::string to{};
    int status = 1;
  } rows[] = {
      {"satnav-tap --port $PORT --topic system/var/# > /dev/full"},
      {"satnav-tap --read bus.rec > /dev/full"},
      {"satnav-tap --read bus.rec --json > /dev/full"},
      {"satnav-tap --read bus.rec --changes > /dev/full"},
      {"satnav-tap --read bus.rec --nmea --tcp $FREE --pty gps > /dev/full"},
      {"satnav-tap --read bus.rec --summary > /dev/full"},
      {"satnav-tap --port $PORT --replay bus.rec --speed 1000 > /dev/full"},
      {"satnav-tap --read bus.rec --force --export gpx /dev/full > notes", " /dev/full"},
      {"satnav-tap --read bus.rec --force --export kml /dev/full > notes", " /dev/full"},
      {"satnav-tap --read bus.rec --force --export csv /dev/full > notes", " /dev/full"},
      {"satnav-tap --read bus.rec --force --record /dev/full > notes", " /dev/full"},
      {"satnav-tap --read bus.rec --force --can-log /dev/full > notes", " /dev/full"},
      {"satnav-tap --port $PORT --force --export gpx /dev/full > notes", " /dev/full"},
      {"satnav-tap --port $PORT --force --record /dev/full > notes", " /dev/full"},
      {"gnss-sim --link gps1 > /dev/full"},
      {"gnss-sim --show > /dev/full"},
      {"gnss-sim --trace /dev/full --fault power-cycle@0.1 > notes", " /dev/full"},
      {"gnss-sim --sentence-trace /dev/full --link gps2 > >(read -r; exec cat gps2 2> /dev/null)",
       " /dev/full"},
      {"gnss-sim --replay link.pcap > /dev/full"},
      {"ecu-sim --port $PORT > /dev/full"},
      {"ecu-sim --port $PORT --keep > /dev/full"},
      {"ecu-sim --bridge 127.0.0.1:$PORT/a 127.0.0.1:$PORT/b > /dev/full"},
      {"satnavd-replay link.pcap --log EMERG > /dev/full"},
      {"satnav-check --config unit.conf > /dev/full", "", 2},
      {"satnav-check --config unit.conf --json > /dev/full", "", 2},
      {"satnav-check --config unit.conf --live --gnssdevice /no/device > /dev/full", "", 2},
  };
  publish_unit();
  std::vector<std::unique_ptr<Process>> processes;
  for (const auto& row : rows) processes.push_back(shell(row.command));
  for (size_t i = 0; i < std::size(rows); ++i) {
    const auto& [command, to, status] = rows[i];
    EXPECT_EQ(processes[i]->wait_for_exit(PATIENCE_MS), status) << command;
    EXPECT_EQ(processes[i]->err(),
              program_of(command) + ": cannot write" + to + ": No space left on device\n");
  }
  for (const auto* link : {"gps", "gps1", "gps2"}) EXPECT_FALSE(std::filesystem::is_symlink(folder / link));
}

// The messages come from the service, whose recording of the link knows no broker.
TEST_F(ModesTest, WhenTheBrokerIsBackTheyGoOn) {
  struct Row {
    std::string command;
    std::string part;      // each message adds one
    std::string file{};    // that is written; else standard output
    std::string reader{};  // command whose output counts instead
  };
  const Row rows[] = {
      {"satnav-tap --port $PORT", "system/gnss/data "},
      {"satnav-tap --port $PORT --json", "\"topic\":\"system/gnss/data\""},
      {"satnav-tap --port $PORT --changes", "system/gnss/data "},
      {"satnav-tap --port $PORT --nmea", "RMC,"},
      {"satnav-tap --port $PORT --tcp $FREE", "RMC,", "",
       "until exec 3<> /dev/tcp/127.0.0.1/$FREE; do sleep 0.01; done; exec cat <&3"},
      {"satnav-tap --port $PORT --pty gps", "RMC,", "",
       "until [ -e gps ]; do sleep 0.01; done; exec cat gps"},
      {"satnav-tap --port $PORT --export gpx a.gpx", "<trkpt ", "a.gpx"},
      {"satnav-tap --port $PORT --export kml a.kml", "<when>", "a.kml"},
      {"satnav-tap --port $PORT --export csv a.csv", "\r\n", "a.csv"},
      {"satnav-tap --port $PORT --record a.rec", "\"system/gnss/data\"", "a.rec"},
      {"satnav-tap --port $PORT --can-log a.can", "\n", "a.can"},
      // after the loss only if the unit publishes its state again, and if the bridge carries
      {"satnav-tap --port $PORT --topic system/var/#", "hasgnss"},
      {"satnav-tap --port $PORT --topic b/rt/#", "b/rt/j1939can/rx/vp1_fb "},
  };
  const auto unit = start_unit({"--var", "hwversion=zpt"});
  const auto simulator = receiver({"--baud", "57600", "--rate", "5", "--sentence-trace", folder / "sent"});
  const std::string link = folder / "drive.pcap";
  const auto service = satnavd("baud_rate = 57600\nrecord_link = " + link + "\n");
  const auto bridge = shell("exec ecu-sim --bridge 127.0.0.1:$PORT 127.0.0.1:$PORT/b");
  const auto summary = shell("exec satnav-tap --port $PORT --summary");
  const auto metrics = shell("exec satnav-tap --port $PORT --prometheus $((FREE + 1))");
  std::vector<std::unique_ptr<Process>> processes, readers;
  for (const auto& row : rows) {
    processes.push_back(shell("exec " + row.command));
    readers.push_back(row.reader.empty() ? nullptr : shell(row.reader));
  }
  const auto output = [&](size_t i) {
    if (!rows[i].file.empty()) return text_of(folder / rows[i].file);
    return (readers[i] != nullptr ? readers : processes)[i]->out();
  };
  const auto count = [&](size_t i) { return occurrences(output(i), rows[i].part); };
  const auto metric = [&](const std::string& sample) {
    return eventually([&] { return Value(get(port + 1, "/metrics"), ContainsRegex("\n" + sample + "\n")); },
                      PATIENCE_MS);
  };
  for (size_t i = 0; i < std::size(rows); ++i)
    EXPECT_TRUE(eventually([&] { return count(i) > 0; }, PATIENCE_MS)) << rows[i].command;
  EXPECT_TRUE(metric("satnav_tap_broker_connected 1"));

  broker.kill();
  EXPECT_TRUE(metric("satnav_tap_broker_connected 0"));
  EXPECT_TRUE(metric("satnav_fix_gaps_total [1-9]"));
  std::vector<std::string> before;
  for (size_t i = 0; i < std::size(rows); ++i) before.push_back(output(i));
  ASSERT_TRUE(broker.start());
  EXPECT_TRUE(metric("satnav_tap_broker_connected 1"));
  for (size_t i = 0; i < std::size(rows); ++i) {
    const auto& row = rows[i];
    EXPECT_TRUE(eventually([&] { return count(i) > occurrences(before[i], row.part); }, PATIENCE_MS))
        << row.command;
    EXPECT_TRUE(output(i).starts_with(before[i].substr(0, before[i].rfind(row.part)))) << row.command;
    expect_end(*processes[i], SIGINT);
  }
  for (auto* process : {metrics.get(), summary.get(), bridge.get(), service.get()})
    expect_end(*process, SIGINT);
  EXPECT_THAT(summary->out(), ContainsRegex("\nGaps        [1-9] of more than 1.5 s without a valid fix"));
  EXPECT_THAT(bridge->out(), ContainsRegex("VP1 [^\n]* [1-9][0-9]* carried, 0 lost, "));

  // At least 1.5 s of it would be missing if the recording waited for the broker.
  const auto replayed = shell("satnavd-replay drive.pcap --log EMERG --topic system/gnss/data");
  EXPECT_EQ(replayed->wait_for_exit(PATIENCE_MS), 0) << replayed->err();
  EXPECT_GE(occurrences(replayed->out(), "RMC,") + 5, occurrences(text_of(folder / "sent"), "RMC,"));
}
