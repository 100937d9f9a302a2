#include <termios.h>

#include "system/SatnavdTest.h"

using namespace test;
using namespace testing;
using nlohmann::json;

namespace {

Process& ended(Process& process, int status) {
  EXPECT_EQ(process.wait_for_exit(PATIENCE_MS), status) << process.out() << process.err();
  return process;
}

/// Runs satnav-check and returns its JSON document.
json checked(Words options, int status) {
  options.insert(options.begin(), {program("satnav-check"), "--json"});
  Process process(options);
  return json::parse(ended(process, status).out());
}

/// Returns what was seen on the unit: "\nAREA SUBJECT: TEXT" each, with a "!" before a finding.
std::string unit_of(const json& report) {
  std::string text;
  for (const json& fact : report["unit"])
    text += (fact["finding"] ? "\n!" : "\n") + fact["area"].get<std::string>() + " " +
            fact["subject"].get<std::string>() + ": " + fact["text"].get<std::string>();
  return text + "\n";
}

using CheckLiveTest = test::SatnavdTest;

}  // namespace

TEST(CheckTest, FindsTwentyMistakesAtOnce) {
  const test::TempDir folder;
  const auto password = folder.write("password", "hunter2\n");
  std::filesystem::permissions(password, std::filesystem::perms(0644));
  const auto database = folder.write("bad.dbc", "BO_ 1 X: 8 Y\nSG_\n");
  const struct {
    std::string line, taken, problem;
  } rows[] = {
      {"logmode = FILE", "STDERR", "does not exist"},
      {"loglevel = LOUD", "INFO", "log level 'LOUD' does not exist"},
      {"baudrate = 9600", "nothing, the line is ignored", "is baud_rate meant?"},
      {"my_password = hunter2", "nothing, the line is ignored", "no such key"},
      {"port = 65536", "1883", "is no number from 1 to 65535"},
      {"host = mqtt://broker", "the value all the same", "neither a name nor an address"},
      {"baud_rate = 14400", "19200", "baud rate not supported 14400"},
      {"disable_hw_init = yes", "false", "is not true, 1, false or 0"},
      {"radio_silence_configured = false", "true", "is heeded all the same"},
      {"gnss_augmentation = 12", "the value all the same", "only the bits 1, 2 and 4"},
      {"set_system_time = true", "line 12", "given again"},
      {"set_system_time = TRUE", "false", "is not true"},
      {"debugflags = 0x10 # areas", "16", "not a number as a whole"},
      {"raw_cmd_post[0] = B56", "nothing is sent", "Hex to bin error"},
      {"raw_cmd_post[1] = 2447505156542A31", "it is sent as it is", "does not begin with B5 62"},
      {"raw_cmd_post[2] = B56206080100FFFF", "it is sent as it is",
       "says 1 bytes of payload, but there are 0"},
      {"raw_cmd_post[3] = B56206080110" + std::string(2UL * (4097 + 2), '0'), "it is sent as it is",
       "too long"},
      {"signal_database = " + database, "the built-in one", "bad.dbc line 2: expected a signal name"},
      {"record_link = /no/folder/link.pcap", "nothing is recorded", "cannot be found: No such file"},
      {"record_link_size = 0", "64", "is not a number from 1 to 2000"},
      {"tls_ca = /no/such/file", "no connection is made", "cannot be read or is empty"},
      {"username = u\npassword_file = " + password, "the value all the same", "can be read by everybody"},
  };
  std::string text, kept = "\nraw_cmd_post[4] = B562060800000000\nclient_name = unit";
  for (const auto& row : rows) text += row.line + "\n";
  const auto file = folder.write("satnavd.conf", text + kept);

  const json report = checked({"--config", file}, 1);
  ASSERT_EQ(report["findings"].size(), std::size(rows)) << report.dump(1);
  for (size_t i = 0; i < std::size(rows); ++i) {
    const json& finding = report["findings"][i];
    EXPECT_EQ(finding["line"], i < 21 ? i + 1 : 23);
    EXPECT_EQ(finding["taken"], rows[i].taken) << finding;
    EXPECT_THAT(finding["problem"], HasSubstr(rows[i].problem));
  }
  EXPECT_EQ(report["starts"], true);
  EXPECT_EQ(report["settings"]["baud_rate"], json({{"value", "19200"}, {"source", "in place of line 7"}}));
  EXPECT_EQ(report["settings"]["raw_cmd_post[4]"],
            json({{"value", "B562060800000000"}, {"source", "line 25, sent with the right checksum"}}));
  EXPECT_EQ(report["settings"]["client_name"], json({{"value", "unit"}, {"source", "line 26"}}));

  Process people({program("satnav-check")}, folder.path());
  EXPECT_THAT(
      ended(people, 1).out(),
      AllOf(
          HasSubstr("/satnavd.conf: 22 findings\n"),
          HasSubstr("line 7  baud_rate = 14400\n    baud rate not supported 14400 [the service logs this at "
                    "ERROR]\n    taken:    19200\n    allowed:  4800, "),
          Not(HasSubstr("hunter2"))));
}

TEST(CheckTest, SaysWhatCannotStart) {
  const test::TempDir folder;
  const auto broken = folder.write("broken.conf", "port = 1884\npassword hunter2\ngnss_device = ttyUSB0\n");
  const json report = checked({"--config", broken}, 1);
  EXPECT_EQ(report["starts"], false);
  EXPECT_EQ(report["findings"][0]["problem"], "expected 'key = value' or a comment");
  EXPECT_EQ(report["findings"][1]["problem"], "this path is relative");
  EXPECT_EQ(report["settings"]["port"]["value"], "1884");

  const json installed = checked({"--config", INSTALLED_CONFIGURATION}, 0);
  EXPECT_EQ(installed["settings"]["gnss_device"]["source"], "the unit's hardware");
  EXPECT_EQ(installed["settings"].size(), 30);
}

TEST_F(CheckLiveTest, SeesTheUnitAndChangesNothing) {
  publish_unit({"--param", "0xA09B=05", "--param", "0xA020=00", "--param", "0xA021=01:nootaid"});
  const auto simulator = receiver({"--baud", "9600", "--trace", "-"});
  const Process tap(tool({"satnav-tap", "--json", "--topic", "#"}, broker));
  const auto file = folder.write(
      "unit.conf", "client_name = unit\nbaud_rate = 9600\nport = " + std::to_string(broker.port()) +
                       "\ngnss_device = " + device + "\n");
  const auto settings = [this] {
    termios now{};
    const int fd = open(device.c_str(), O_RDWR | O_NOCTTY);
    EXPECT_EQ(tcgetattr(fd, &now) + close(fd), 0);
    return std::vector{now.c_iflag, now.c_oflag, now.c_cflag, now.c_lflag, unsigned{now.c_cc[VMIN]}};
  };
  const auto before = settings();
  const json report = checked({"--config", file, "--live"}, 1);
  EXPECT_EQ(settings(), before);
  EXPECT_THAT(simulator->out(), Not(HasSubstr("host>")));
  EXPECT_THAT(tap.out(), Not(HasSubstr("\"retained\":false")));
  EXPECT_THAT(broker.log(), AllOf(HasSubstr(" as satnav-check-"), Not(HasSubstr(" as unit "))));
  EXPECT_THAT(
      unit_of(report),
      AllOf(HasSubstr(": logged in without a name, without TLS\n"),
            HasSubstr("\nvariables hwversion: \"qrx\": fixes also go to the unit's time service\n"),
            HasSubstr("\nparameters 0xA020 GLONASS On: 00: off\n"),
            HasSubstr("\n!parameters 0xA021 GALILEO On: 01: cannot be used"),
            HasSubstr("\n!parameters 0xA09B GNSS rate: 05: cannot be used, 4 Hz is taken\n"),
            HasSubstr("\nparameters 0xA00F GNSSOn: absent"),
            HasSubstr("\ntopics to subscribe: 15 of 15 accepted"), HasSubstr(", held by nobody\n"),
            ContainsRegex("\ndevice 9600 bit/s: [0-9]+ bytes [^\n]* [1-9][0-9]* sentences"),
            ContainsRegex("\n!link 9600 bit/s: up to [0-9]+ bytes an epoch, every 250 ms: 2[0-9][0-9] %")));

  // A receiver at another rate is found, and one that the service holds is left alone.
  const auto other = folder.write("other.conf", "port = " + std::to_string(broker.port()) + "\n");
  EXPECT_THAT(unit_of(checked({"--config", other, "--live", "--gnssdevice", device}, 1)),
              AllOf(ContainsRegex("\ndevice 38400 bit/s: [^\n]* 0 sentences, 0 UBX"),
                    ContainsRegex("\ndevice 9600 bit/s: [^\n]* [1-9][0-9]* sentences"),
                    HasSubstr("\ndevice baud rate: not the configured one")));
  const auto service = satnavd("baud_rate = 9600\n");
  ASSERT_TRUE(Tap(broker).gets(1, VALID));
  const std::string held =
      ", held by satnavd (process " + std::to_string(service->pid()) + "); not listened to\n";
  EXPECT_THAT(unit_of(checked({"--config", file, "--live"}, 1)),
              AllOf(HasSubstr(held), Not(HasSubstr("\n!device"))));
  EXPECT_TRUE(Tap(broker).gets(1, VALID));
}

TEST_F(CheckLiveTest, SaysWhatIsMissing) {
  const auto security = folder.write(
      "security.json",
      R"({"defaultACLAccess": {"subscribe": false, "publishClientReceive": true}, "anonymousGroup": "g",
        "groups": [{"groupname": "g", "roles": [{"rolename": "r"}]}], "roles": [{"rolename": "r", "acls":
        [{"acltype": "subscribePattern", "topic": "system/#", "allow": true, "priority": 0}]}]})");
  Broker strict({"plugin " DYNAMIC_SECURITY, "plugin_opt_config_file " + security});
  ASSERT_TRUE(strict.start());
  const auto file =
      folder.write("a.conf", "var_timeout_ms = 200\nport = " + std::to_string(strict.port()) + "\n");
  EXPECT_THAT(unit_of(checked({"--config", file, "--live", "--gnssdevice", "/no/device"}, 1)),
              AllOf(HasSubstr("\n!variables hwversion: absent"),
                    HasSubstr("\n!topics rt/system/blackout_mode: the broker refuses the subscription\n"),
                    HasSubstr("\ntopics to subscribe: 13 of 15 accepted"),
                    HasSubstr("\n!device /no/device: No such file or directory\n"),
                    HasSubstr("\nlink 38400 bit/s: up to ")));
  const auto nobody = folder.write("b.conf", "port = " + std::to_string(free_port()) + "\n");
  const int silent = terminal(device);
  EXPECT_THAT(unit_of(checked({"--config", nobody, "--live", "--gnssdevice", device}, 1)),
              AllOf(ContainsRegex("\n!broker 127.0.0.1:[0-9]+: no connection: "),
                    ContainsRegex("\n!device /[^\n]*: no receiver is heard at any")));
  close(silent);
}
