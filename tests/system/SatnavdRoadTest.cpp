// The road of a fix through the real programs, and the faults that it survives.

#include <sys/stat.h>

#include <functional>

#include "support/Frames.h"
#include "support/LocalSocket.h"
#include "system/SatnavdTest.h"

namespace {

using namespace test;
using namespace testing;
using nlohmann::json;

class SatnavdRoad : public test::SatnavdTest {
 protected:
  void SetUp() override {
    ASSERT_NO_FATAL_FAILURE(SatnavdTest::SetUp());
    publish_unit();
  }
};

struct Recorded {
  std::string noise;   // it follows the first sentence
  Words sentences;     // without dollar sign and checksum
  const char* fields;  // of the message, in JSON, without its sentences
};

const std::string LONG_RMC =
    "GNRMC,123522.00,A,4807.03812345678,N,01131.00012345678,E,022.400000,084.400000,230326,,,A,V";

/// Bytes between the sentences of a log that must change nothing.
const std::string NOISE =
    "\x01\x02xyz\r\n$GNGGA,123522.00,9,N,9,E,1,12,0.9,1.0,M,46.9,M,,*00\r\n"  // the checksum is wrong
    "$GNGGA,123522.00,9,N,9,E,1,12,0.9,1.0,M,46.9,M,,*70\n"                   // there is no CR
    "$GNGSA,A\x07,3*00\r\n" +
    nmea("GNGGA,123522.00,,,,,1,x,,,M,,M,,") + nmea("GNGGA,123522.00,,,,,1,99999999999999999999,,,M,,M,,") +
    ubx(0x01, 0x07, "$GNGST,123522.00,9,,,,9,9,9*00\r\n") +
    ubx(0x01, 0x21, std::string(20, '\0')).replace(25, 1, "\x7f");

const Recorded RECORDED[] = {
    {"",
     {"GNRMC,123520.50,A,3351.12345,S,07012.54321,W,000.0,,230326,,,A,V",
      "GNGGA,123520.50,3351.12345,S,07012.54321,W,2,19,0.71,-12.3,M,46.9,M,,0120",
      "GNGSA,A,3,04,05,09,12,24,,,,,,,,9.9,9.8,9.7,1", "GNGSA,A,3,65,66,71,,,,,,,,,,1.6,0.71,1.4,2",
      "GPGSV,1,1,01,04,45,120,38,1", "GNGST,123520.50,5.0,0.1,0.2,45.0,1.5,0.5,3.0"},
     R"({"status":3,"utc_time_us":1774269320500000,"latitude":-33.85206,"longitude":-70.20905,"speed":0.0,
         "quality":2,"num_satellites":19,"altitude":-12.3,"fix":3,"hdop":0.71,"vdop":1.4,"accuracy":1.5})"},
    {NOISE,
     {LONG_RMC, "GNGGA,123522.00,4807.03812345678,N,01131.00012345678,E,1,12,0.900,545.40,M,46.900,M,,",
      "GNGSA,A,2,04,05,09,,,,,,,,,,4.4,4.3,1.0,1", "GNGSA,A,2,65,,,,,,,,,,,,4.4,4.2,1.0,2",
      "GNGSA,A,2,301,,,,,,,,,,,,4.4,4.1,1.0,3", "GNGSA,A,2,401,,,,,,,,,,,,4.4,4.0,1.0,4",
      "GNGST,123522.00,5.0,,,,12.0,11.0,3.0"},
     R"({"status":3,"utc_time_us":1774269322000000,"latitude":48.117302,"longitude":11.516668,"speed":41.4848,
         "heading":84.4,"quality":1,"num_satellites":12,"altitude":545.4,"fix":2,"hdop":4.0,"vdop":1.0,
         "accuracy":12.0})"},
};

TEST_F(SatnavdRoad, ARecordedLogGivesOneMessageAnEpoch) {
  std::string log;
  for (const auto& epoch : RECORDED) {
    log += nmea(epoch.sentences[0]) + epoch.noise;
    for (size_t i = 1; i < epoch.sentences.size(); ++i) log += nmea(epoch.sentences[i]);
  }
  const auto simulator = receiver({"--replay", folder.write("log", log), "--speed", "4", "--baud", "115200"});
  Tap tap(broker);
  const auto service = satnavd("baud_rate = 115200\n");
  ASSERT_EQ(simulator->wait_for_exit(PATIENCE_MS), 0);
  ASSERT_TRUE(tap.gets(1, NOTHING_KNOWN));
  std::vector<json> fixes, expected;
  for (const auto& fix : tap.fixes()) {
    if (!fix["body"].contains("nmea")) continue;
    fixes.push_back(fix["body"]);
    fixes.back().erase("timestamp_ns");
  }
  for (const auto& epoch : RECORDED) {
    expected.push_back(json::parse(epoch.fields));
    for (const auto& sentence : epoch.sentences) expected.back()["nmea"].push_back(nmea(sentence));
  }
  EXPECT_EQ(fixes, expected) << service->err();
  EXPECT_EQ(occurrences(service->err(), "WARNING koru.gpspub: sentence dropped"), 2U) << service->err();
  expect_end(*service, SIGINT);
}

TEST_F(SatnavdRoad, TheBrokerMayDieAndMayFreeze) {
  const auto unit = start_unit({"--timezone", "+01:00"});
  const auto simulator = receiver({"--rate", "4"});
  const auto service = satnavd({}, {"-v", "-d", "0x20001"});
  ASSERT_TRUE(logged(*service, "Num NMEA strings", 2)) << service->err();

  broker.kill();
  // By then the service has tried to reconnect once. At its next try the broker must listen.
  EXPECT_TRUE(logged(*service, "DATA TO PUBLISH BUT NO MQTT", 7)) << "the service stopped reading";
  const int64_t restart_ns = clock_ns(CLOCK_BOOTTIME);
  ASSERT_TRUE(broker.start());
  Tap tap(broker);
  ASSERT_TRUE(tap.gets(4, VALID)) << service->err();
  unit->write_stdin("timezone +05:30 summer\n");
  EXPECT_TRUE(service->wait_for_output("timezone info: hour offset: 5, min offset: 30, Summer time: 1\n",
                                       PATIENCE_MS));

  broker.freeze();
  const size_t so_far = occurrences(service->err(), "Num NMEA strings");
  EXPECT_TRUE(logged(*service, "Num NMEA strings", so_far + 4)) << "the service stopped reading";
  broker.thaw();
  EXPECT_TRUE(tap.gets(4, VALID)) << service->err();

  unit->write_stdin("log-config 40\nparam 0xA00F=02\n");
  EXPECT_TRUE(service->wait_for_output("log configuration flags = 0x40\n", PATIENCE_MS));
  EXPECT_TRUE(service->wait_for_output("otaid_GNSSOn configured as OFF.", PATIENCE_MS));
  const int64_t off_ns = clock_ns(CLOCK_BOOTTIME);
  EXPECT_FALSE(eventually([&] { return tap.count_since(off_ns, VALID) > 0; }, 1000));

  int64_t before_ns = restart_ns - S / 3;  // the epoch in progress is allowed
  for (const auto& fix : tap.fixes()) {
    EXPECT_GT(fix["body"]["timestamp_ns"], before_ns) << "an old fix was delivered";
    before_ns = fix["body"]["timestamp_ns"];
  }
  EXPECT_EQ(occurrences(service->err(), "WARNING koru.com.mqtt: Connection lost to"), 1U);
  EXPECT_EQ(occurrences(service->err(), "NOTICE koru.com.mqtt: Connected again to"), 1U);
  expect_end(*service);
}

// What the log and the health topic say is tested in virtual time; here a real broker has the last word.
TEST_F(SatnavdRoad, TheHealthTopicTellsHowItEnds) {
  const std::string topic = "system/gnss/health", config = "health_topic = " + topic + "\n";
  publish_unit();
  const auto simulator = receiver({"--no-fix"});
  const auto silent_one = satnavd("health_topic = a/#\n");
  EXPECT_TRUE(logged(*silent_one, "health_topic = \"a/#\" is not a topic to publish on", 1));
  EXPECT_TRUE(logged(*silent_one, "Hardware port redirected", 1));
  expect_end(*silent_one);
  Tap tap(broker, topic);
  const auto tells = [&](const char* state) {
    return eventually([&] { return !tap.fixes().empty() && tap.fixes().back()["body"]["state"] == state; },
                      PATIENCE_MS);
  };
  const auto killed = satnavd(config);
  EXPECT_TRUE(tells("NO_FIX")) << killed->err();
  const std::string reason = tap.fixes().back()["body"]["reason"];
  EXPECT_EQ(occurrences(killed->err(), "INFO koru.gpspub: " + reason + "\n"), 1U) << killed->err();
  killed->signal(SIGKILL);
  EXPECT_TRUE(tells("GONE"));

  const auto stopped = satnavd(config);
  EXPECT_TRUE(tells("STARTING")) << stopped->err();
  expect_end(*stopped);
  EXPECT_TRUE(tells("STOPPED"));
  Tap late(broker, topic);
  EXPECT_TRUE(eventually([&] { return late.fixes().size() == 1; }, PATIENCE_MS));
  EXPECT_EQ(late.fixes().back()["body"]["state"], "STOPPED");
}

TEST_F(SatnavdRoad, TheReceiverMayComeLateAndGo) {
  Tap tap(broker);
  // In its own session it gets the port as its controlling terminal, and a SIGHUP when the port goes away.
  const auto service = satnavd({}, {}, {"setsid"});
  ASSERT_TRUE(tap.gets(2, NOTHING_KNOWN)) << service->err();
  for (const size_t outages : {1U, 2U}) {
    const int64_t begin_ns = clock_ns(CLOCK_BOOTTIME);
    const auto simulator = receiver({"--rate", "2"});
    ASSERT_TRUE(tap.gets(2, VALID)) << service->err();
    EXPECT_LT(clock_ns(CLOCK_BOOTTIME) - begin_ns, 8 * S);
    simulator->signal(SIGKILL);
    ASSERT_TRUE(simulator->wait_for_exit(PATIENCE_MS));
    std::filesystem::remove(device);  // the next test may get the same terminal
    const int64_t gone_ns = clock_ns(CLOCK_BOOTTIME);
    ASSERT_TRUE(tap.gets(2, NOTHING_KNOWN)) << service->err();
    EXPECT_LE(tap.count_since(gone_ns, NOTHING_KNOWN), (clock_ns(CLOCK_BOOTTIME) - gone_ns) / S + 1);
    EXPECT_EQ(occurrences(service->err(), "went away"), outages);
  }
  EXPECT_EQ(occurrences(service->err(), "ERROR"), 1U) << service->err();
  expect_end(*service);
}

TEST_F(SatnavdRoad, ADeviceThatIsNoReceiverCostsNothing) {
  ASSERT_EQ(mkfifo((folder / "fifo").c_str(), 0600), 0);
  const struct {
    std::string device, told;
  } rows[] = {
      {folder / "missing", "errno = 2\n"},
      {folder.path(), "errno = 21\n"},
      {folder / "fifo", "does not take serial port settings"},
      {"/dev/null", "went away; trying to open it"},
      {"/dev/zero", "went away; trying to open it"},
      {folder.write("file", std::string(3000, 'x')), "went away; trying to open it"},
  };
  std::vector<std::unique_ptr<Process>> services;
  std::vector<int64_t> cpu_ns;
  const auto cpu = [&](size_t i) {
    clockid_t clock{};
    EXPECT_EQ(clock_getcpuclockid(services[i]->pid(), &clock), 0);
    return clock_ns(clock);
  };
  const std::string opened = "connectSerial to";
  for (const auto& row : rows) services.push_back(satnavd({}, {"-v", "-d", "0x2000", "-g", row.device}));
  for (const auto& service : services) ASSERT_TRUE(logged(*service, opened, 1));
  for (size_t i = 0; i < services.size(); ++i) cpu_ns.push_back(cpu(i));
  const int64_t begin_ns = clock_ns(CLOCK_MONOTONIC);
  ASSERT_TRUE(logged(*services[0], opened, occurrences(services[0]->err(), opened) + 3));
  const int64_t time_ns = clock_ns(CLOCK_MONOTONIC) - begin_ns;
  for (size_t i = 0; i < services.size(); ++i) {
    SCOPED_TRACE(rows[i].device);
    EXPECT_LT(cpu(i) - cpu_ns[i], time_ns / 50);
    EXPECT_LE(occurrences(services[i]->err(), opened), static_cast<size_t>(time_ns / S + 3));
    EXPECT_EQ(occurrences(services[i]->err(), rows[i].told), 1U) << services[i]->err();
    expect_end(*services[i]);
  }
}

TEST_F(SatnavdRoad, AStopSignalEndsItWhateverTheOthersDo) {
  const auto simulator = receiver({"--rate", "4"});
  std::unique_ptr<MuteBroker> mute;
  const LocalSocket manager(folder / "notify");
  const struct {
    const char* name;
    int signal;
    std::string config;
    std::function<void(Process&)> disturb;
  } rows[] = {
      {"running", SIGTERM, "", [](auto&) {}},
      {"device missing", SIGTERM, "gnss_device = /nowhere\n", [](auto&) {}},
      {"broker frozen", SIGTERM, "", [&](auto&) { broker.freeze(); }},
      {"broker gone", SIGINT, "",
       [&](auto& service) {
         broker.stop();
         EXPECT_TRUE(service.wait_for_output("Connection lost to", PATIENCE_MS));
       }},
      {"broker mute", SIGTERM, "",
       [&](auto&) {
         broker.stop();
         mute = std::make_unique<MuteBroker>(broker.port());
         for (int i = 0; i < 2; ++i) EXPECT_TRUE(mute->called()) << "the service does not try again";
       }},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const auto service =
        satnavd(row.config, {"-v"}, {"env", "NOTIFY_SOCKET=" + folder / "notify", "WATCHDOG_USEC=20000000"});
    ASSERT_TRUE(logged(*service, "Num NMEA strings", 2)) << service->err();
    EXPECT_THAT(manager.take(), IsSupersetOf({"READY=1", "WATCHDOG=1"}));
    row.disturb(*service);
    expect_end(*service, row.signal);
    EXPECT_THAT(manager.take(), Contains("STOPPING=1"));
    if (!mute) {
      broker.stop();
      ASSERT_TRUE(broker.start());
      publish_unit();
    }
  }
}

TEST_F(SatnavdRoad, HangUpsAndAReaderThatLeavesDoNotEndIt) {
  Tap tap(broker);
  const auto service =
      satnavd({}, {"--log-stdout", "-v"}, {"bash", "-c", "exec > >(head -n 1 >&2); exec \"$0\" \"$@\""});
  ASSERT_TRUE(tap.gets(2, NOTHING_KNOWN)) << service->err();
  service->signal(SIGHUP);
  service->signal(SIGPIPE);
  EXPECT_TRUE(tap.gets(2, NOTHING_KNOWN));
  EXPECT_EQ(occurrences(service->err(), "\n"), 1U) << "more than one line was read: " << service->err();
  expect_end(*service);
}

}  // namespace
