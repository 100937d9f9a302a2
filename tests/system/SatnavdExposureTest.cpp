// Attacks by strangers on the service, and failures of the places that it writes to.

#include <sys/stat.h>

#include "platform/base/LogOutput.h"
#include "support/Frames.h"
#include "support/LocalSocket.h"
#include "system/SatnavdTest.h"

namespace {

using namespace test;
using namespace testing;

std::string mqtt(char type, const std::string& body) {
  return type + std::string(1, static_cast<char>(body.size())) + body;
}

std::string publish(const std::string& topic, const std::string& payload) {
  return mqtt('\x30', '\0' + std::string(1, static_cast<char>(topic.size())) + topic + payload);
}

std::string group(const std::string& signals) {
  const std::string body = "\x0A" + std::string(1, static_cast<char>(signals.size())) + signals;
  return bytes("09 0100 1200") + static_cast<char>(body.size()) + bytes("000000 11 0100000000000000") + body;
}

class SatnavdExposure : public test::SatnavdTest {
 protected:
  /// Sends the packets `count` times. Returns after the broker has read them all.
  void flood(const std::string& packets, size_t count) const {
    const int connection = connect_to(broker.port());
    std::string stream = mqtt('\x10', bytes("0004 4D515454 04 02 003C 0005") + "flood");
    for (size_t i = 0; i < count; ++i) stream += packets;
    stream += mqtt('\xE0', "");
    EXPECT_EQ(send(connection, stream.data(), stream.size(), MSG_NOSIGNAL),
              static_cast<ssize_t>(stream.size()));
    char answer[5];
    EXPECT_EQ(recv(connection, answer, sizeof answer, MSG_WAITALL), 4);
    close(connection);
  }
};

TEST_F(SatnavdExposure, ALocalSocketThatDoesNotReadStopsNothing) {
  const std::string path = folder / "log";
  const LocalSocket daemon(path);
  const auto fill = [&] {
    ecu::koru::logging::SyslogOutput filler(path);
    while (filler.put("x")) continue;
  };
  publish_unit();
  const auto simulator = receiver({});
  Tap tap(broker);
  const auto service = satnavd("logmode = SYSLOG\n", {}, preloaded({"SATNAVD_TEST_LOG=" + path}));
  ASSERT_TRUE(tap.gets(1, VALID));
  fill();
  flood(publish("system/sysparam/0x0000A01F", "malformed"), 600);
  EXPECT_TRUE(tap.gets(3, VALID));
  while (!daemon.received().empty()) continue;
  // The loss is logged before the 10 s of the flood are over, without waiting for another record.
  std::string records;
  EXPECT_TRUE(
      eventually([&] { return (records += daemon.received()).find(" lost") != std::string::npos; }, 5000));
  fill();
  expect_end(*service);
}

TEST_F(SatnavdExposure, AFloodWritesFiftyRecordsAStatement) {
  const std::string vp1 = "rt/j1939can/rx/vp1_fb";
  const auto simulator = receiver({});
  Tap tap(broker);
  publish_unit();
  auto service = satnavd();
  ASSERT_TRUE(tap.gets(1, VALID));
  flood(publish("system/sysparam/0x0000A01F", "malformed"), 5000);
  ASSERT_TRUE(tap.gets(2, VALID));
  EXPECT_EQ(occurrences(service->err(), "Unable to deserialize data for topic"), 50U);
  EXPECT_LE(occurrences(service->err(), "\n"), 50U + 50U + 20U);
  expect_end(*service);
  EXPECT_EQ(occurrences(service->err(), " more like: Unable to deserialize data for topic"), 1U);

  const std::string noise = folder / "noise";
  const int line = terminal(noise);
  service = satnavd("gnss_device = " + noise + "\n");
  ASSERT_TRUE(tap.gets(1, NOTHING_KNOWN));
  std::string frames;
  for (int i = 0; i < 400; ++i) frames += ubx(0x0A, 0x09);  // MON-HW without a payload
  for (int i = 0; i < 20; ++i) EXPECT_GT(write(line, frames.data(), frames.size()), 0);
  ASSERT_TRUE(tap.gets(2, NOTHING_KNOWN));
  EXPECT_EQ(occurrences(service->err(), "Ublox MON-HW bad payload"), 50U);
  close(line);

  publish_unit({"--var", "hasgnss=false"});
  service = satnavd();
  ASSERT_TRUE(tap.gets(1, NOTHING_KNOWN));
  flood(publish(vp1, group(std::string(8, '\xFF'))) + publish(vp1, group("bad")), 500);
  ASSERT_TRUE(tap.gets(1, NOTHING_KNOWN));
  EXPECT_EQ(occurrences(service->err(), "Unpacking of SignalGroup for topic"), 50U);
}

TEST_F(SatnavdExposure, ABrokerThatSendsWhatNobodyAskedForIsLeft) {
  publish_unit();
  const auto simulator = receiver({});
  const auto service = satnavd();
  ASSERT_TRUE(Tap(broker).gets(1, VALID));
  const auto peak_kb = [&] { return std::stol(status_of(service->pid(), "VmHWM")); };
  const long before_kb = peak_kb();
  broker.kill();
  const int listener = listen_on(broker.port());
  const int room = 4096;
  setsockopt(listener, SOL_SOCKET, SO_RCVBUF, &room, sizeof room);
  const std::pair<std::string, std::string> rows[] = {{bytes("3406 000174 0001 78"), "message with QoS 2"},
                                                      {bytes("C000"), "PINGREQ"}};
  for (const auto& [packet, told] : rows) {
    const int caller = accept(listener, nullptr, nullptr);  // this peer never reads
    std::string stream = bytes("2002 0000");
    while (stream.size() < 2'000'000) stream += packet;
    send(caller, stream.data(), stream.size(), MSG_NOSIGNAL);
    EXPECT_TRUE(logged(*service, "it sent a " + told, 1)) << service->err();
    close(caller);
  }
  EXPECT_LT(peak_kb() - before_kb, 8'000);
  EXPECT_EQ(occurrences(service->err(), "ERROR koru.com.mqtt: The broker broke the protocol"), 2U);
  expect_end(*service);
  close(listener);
}

TEST_F(SatnavdExposure, ThePortHasOneOwner) {
  publish_unit();
  const auto simulator = receiver({});
  Tap tap(broker);
  const auto first = satnavd();
  ASSERT_TRUE(tap.gets(1, VALID));
  const auto second = satnavd();
  EXPECT_TRUE(logged(*second, "Error to open serial device " + device + " errno = 16", 1));
  EXPECT_TRUE(tap.gets(3, VALID));
  EXPECT_EQ(occurrences(first->err(), "went away"), 0U);
  first->signal(SIGKILL);
  EXPECT_TRUE(tap.gets(2, VALID));  // from the second service
}

TEST_F(SatnavdExposure, SecretsThatOthersCanReadAreToldOnce) {
  const std::string secret = folder.write("secret", "word\n");
  const std::string login = "username = user\npassword_file = " + secret + "\n";
  const struct {
    mode_t mode;
    std::string config;
    size_t warnings;
  } rows[] = {{0640, login, 0},
              {0644, login, 1},
              {0640, login + "host = 127.0.0.2.test\n", 1},
              {0640, "host = 127.0.0.2.test\n", 0}};
  for (const auto& [mode, config, warnings] : rows) {
    ASSERT_EQ(chmod(secret.c_str(), mode), 0);
    const auto service = satnavd("connect_timeout_ms = 50\nvar_timeout_ms = 50\n" + config);
    EXPECT_EQ(service->wait_for_exit(PATIENCE_MS), 1);
    EXPECT_EQ(occurrences(service->err(), "WARNING koru.com.mqtt: Configuration"), warnings)
        << service->err();
  }
}

TEST_F(SatnavdExposure, WhatTheToolsWriteIsForTheirOwner) {
  publish_unit({"--var", "hwversion=zpt"});
  const std::string can_log = folder.write("can", ""), trace = folder / "trace",
                    sentences = folder.write("sentences", "");
  const auto simulator = receiver({"--baud", "57600", "--trace", trace, "--sentence-trace", sentences});
  Process cautious({program("satnav-tap"), "--can-log", can_log});
  EXPECT_EQ(cautious.wait_for_exit(PATIENCE_MS), 1);
  EXPECT_THAT(cautious.err(), HasSubstr("cannot write " + can_log + ": File exists; --force replaces it\n"));
  const Process tap(tool({"satnav-tap", "--force", "--can-log", can_log}, broker));
  const auto service = satnavd("disable_hw_init = false\nbaud_rate = 57600\n");
  for (const auto& file : {can_log, trace, sentences}) {
    EXPECT_TRUE(eventually([&] { return !text_of(file).empty(); }, PATIENCE_MS)) << file;
    struct stat status {};
    EXPECT_EQ(stat(file.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U) << file;
  }
  EXPECT_THAT(text_of(can_log), HasSubstr(" can0 18FEF31C#"));
  const auto is_asked = [&] { return text_of(trace).find(" host> CFG-PRT") != std::string::npos; };
  EXPECT_TRUE(eventually(is_asked, PATIENCE_MS)) << service->err();
  std::filesystem::create_symlink(folder / "target", folder / "link");
  for (const Words& argv : {Words{"satnav-tap", "--force", "--can-log"},
                            {"gnss-sim", "--trace"},
                            {"gnss-sim", "--sentence-trace"}}) {
    Words refusing{argv};
    refusing[0] = program(argv[0]);
    refusing.push_back(folder / "link");
    Process refused(refusing);
    EXPECT_NE(refused.wait_for_exit(PATIENCE_MS), 0);
    EXPECT_THAT(refused.err(), HasSubstr("symbolic links"));
  }
  EXPECT_FALSE(std::filesystem::exists(folder / "target"));
}

}  // namespace
