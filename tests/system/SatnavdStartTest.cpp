// How satnavd starts, and how it ends if it cannot.

#include "system/SatnavdTest.h"

namespace {

using namespace test;
using namespace testing;

using SatnavdStart = test::SatnavdTest;

constexpr const char* USAGE = "Usage: satnavd [OPTION]\n";

/// Expects that every line is a whole record without control characters.
void expect_records(const std::string& log) {
  std::istringstream lines(log);
  for (std::string line; std::getline(lines, line);) {
    EXPECT_THAT(line,
                MatchesRegex("[0-9]{4}-[01][0-9]-[0-3][0-9]T[0-2][0-9]:[0-5][0-9]:[0-6][0-9][.][0-9]{3}Z "
                             "(ALERT|ERROR|WARNING|NOTICE|INFO|DEBUG) koru[.a-z]+: [ -~]*"));
  }
}

TEST(SatnavdOptions, EndWithTheirStatusAndText) {
  const test::TempDir folder;
  const std::string good = folder.write("good.conf", "logmode = STDERR\n");
  const std::string none = "configuration line 1: expected 'key = value' or a comment, found 'none'\n";
  const struct {
    Words options;
    int status;
    std::string out, err;
    std::string config = "none";
  } rows[] = {
      {{"--help"}, 1, USAGE, ""},
      {{"-h"}, 1, USAGE, "argument"},
      {{"--nonsense"}, 1, USAGE, "--nonsense"},
      {{"--version"}, 0, "satnavd version: ", ""},
      {{"-v", "stray"}, 1, "", "ERROR koru.gpspub: No additional arguments required!\n"},
      {{"--log-stdout", "stray"}, 1, "ERROR koru.gpspub: No additional arguments required!\n", ""},
      {{"-b", "x\x1b[2J\n2026", "stray"}, 1, "", "arg_baud_rate invalid x\\x1B[2J\\x0A2026\n"},
      {{"-l", "LOUD"}, 1, "", "ERROR koru.logging: log level 'LOUD' does not exist"},
      {{"-c", good}, 1, "", "ERROR koru.config: " + none},
      {{"--log-stdout"}, 1, none, ""},
      {{"-c", good}, 255, "", "ERROR koru.gpspub: Failed to find configuration file. Exiting!\n", ""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(PrintToString(row.options) + row.err);
    folder.write("satnavd.conf", row.config);
    if (row.config.empty()) std::filesystem::remove(folder / "satnavd.conf");
    if (row.config.empty() && std::filesystem::exists("/etc/satnavd/satnavd.conf")) continue;
    Words argv = row.options;
    argv.insert(argv.begin(), program("satnavd"));
    Process satnavd(argv, folder.path());
    EXPECT_EQ(satnavd.wait_for_exit(5000), row.status);  // it did not wait for a broker
    EXPECT_THAT(satnavd.out(), row.out.empty() ? Matcher<std::string>(IsEmpty()) : HasSubstr(row.out));
    EXPECT_THAT(satnavd.err(), row.err.empty() ? Matcher<std::string>(IsEmpty()) : HasSubstr(row.err));
    if (row.out != USAGE) expect_records(satnavd.err());
    if (row.status != 0) continue;
    EXPECT_THAT(satnavd.out(),  // branch - number - commit - date - build type
                MatchesRegex("satnavd version: [^ ]+ - [0-9.]+ - [^ ]+ - [^ ]+ - [^ ]+ compiled "
                             "... .. .... at ..:..:..\n"));
  }
}

TEST_F(SatnavdStart, OptionsBeatTheFileAndTheFileTheDefaults) {
  const std::string talkative = "loglevel = DEBUG\ndebugflags = 0x80000000\n";
  const struct {
    std::string simulation, config;
    Words options;
    std::string text, absent;
    bool to_stdout = false;
  } rows[] = {
      {"00", "signal_database = none.dbc\n", {}, "ERROR koru.rt: signal database none.dbc: No such", "USB0"},
      {"00", talkative, {"-l", "WARNING"}, "WARNING koru.gpspub: Hardware port", "NOTICE"},
      {"00", talkative, {"-d", "0xFFFFFFFF"}, "log flags 4294967295\n", "log flags 2147483648"},
      {"00", "logmode = SYSLOG\n", {"--log-stdout"}, "satnavd version: ", "ERROR koru.log", true},
      {"01", "", {"-g", "/nowhere"}, "sim active. Hardware port redirected to /nowhere. P", "USB0"},
      {"01", "gnss_device = /nowhere\n", {}, "port redirected to /dev/ttyUSB0. Prob", "/nowhere"},
      {"00", "gnss_device = /nowhere\n", {}, "Hardware port redirected to /nowhere. Prob", "USB0"},
      {"00", "", {}, "INFO koru.gpspub: The configuration is that of /", "has no effect"},
      {"00", "", {"-c", "mine"}, "WARNING koru.gpspub: -c mine has no effect: ", "USB0"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.config + PrintToString(row.options));
    publish_unit({"--param", "0x2045=" + row.simulation});
    const auto service = satnavd(row.config, row.options);
    EXPECT_TRUE(service->wait_for_output("Error to open serial device", PATIENCE_MS));
    expect_end(*service);
    const std::string log = row.to_stdout ? service->out() : service->err();
    EXPECT_THAT(log, AllOf(HasSubstr(row.text), Not(HasSubstr(row.absent))));
    EXPECT_THAT(row.to_stdout ? service->err() : service->out(), IsEmpty());
    expect_records(log);
  }
}

TEST_F(SatnavdStart, WithoutBrokerOrVariableItEndsInTime) {
  const MuteBroker mute;
  const struct {
    std::string variable, config, missing;
  } rows[] = {
      {"other=x", "", "hwvariant"},
      {"hwvariant=sim", "", "hwversion"},
      {"hwversion=qrx", "", "hasgnss"},  // the broker still retains hwvariant
      {"hasgnss=true", "port = " + std::to_string(free_port()) + "\n", "hwvariant"},
      {"hasgnss=true", "port = " + std::to_string(mute.port) + "\n", "hwvariant"},
  };
  for (const auto& row : rows) {
    publish_unit({"--no-defaults", "--var", row.variable});
    const int64_t begin = clock_ns(CLOCK_MONOTONIC);
    const auto service = satnavd("connect_timeout_ms = 300\nvar_timeout_ms = 200\n" + row.config);
    EXPECT_EQ(service->wait_for_exit(PATIENCE_MS), 1) << service->err();
    EXPECT_LT(clock_ns(CLOCK_MONOTONIC) - begin, 6'000'000'000);
    EXPECT_THAT(service->err(), HasSubstr("ALERT koru.gpspub: Failed to get mandatory ECU variable '" +
                                          row.missing + "' from ECU. Application exiting!\n"));
    expect_records(service->err());
  }
}

TEST_F(SatnavdStart, TheSecondSignalEndsAStartThatHangs) {
  if (SATNAVD_EMULATED) GTEST_SKIP() << "the emulator decides which signals are caught";
  const auto catches = [](pid_t pid, int signal) {
    return (std::stoull(status_of(pid, "SigCgt"), nullptr, 16) >> (signal - 1) & 1) != 0;
  };
  const MuteBroker mute;
  for (const int signal : {SIGINT, SIGTERM}) {
    const auto service = satnavd("port = " + std::to_string(mute.port) + "\nconnect_timeout_ms = 60000\n");
    ASSERT_TRUE(eventually([&] { return catches(service->pid(), signal); }, PATIENCE_MS));
    service->signal(signal);
    EXPECT_TRUE(eventually([&] { return !catches(service->pid(), signal); }, PATIENCE_MS));
    EXPECT_TRUE(service->running());
    service->signal(signal);
    EXPECT_EQ(service->wait_for_exit(2000), 128 + signal);
  }
}

}  // namespace
