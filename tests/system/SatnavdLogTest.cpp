// What the log can do to the service, and strangers to the log.

#include "support/LogDaemon.h"
#include "system/SatnavdTest.h"

namespace {

using test::PATIENCE_MS;
using testing::HasSubstr;
using testing::MatchesRegex;

class SatnavdLog : public test::SatnavdTest {
 protected:
  /// Publishes `count` messages that are no envelope on the topic of a parameter.
  void flood(size_t count) const {
    const std::string topic = "system/sysparam/0x0000A01F";
    const std::string body = std::string(1, '\0') + static_cast<char>(topic.size()) + topic + "malformed";
    const std::string publish = '\x30' + std::string(1, static_cast<char>(body.size())) + body;
    const std::string login = std::string("\x10\x11\0\x04MQTT\x04\x02\0\x3C\0\x05", 14) + "flood";
    const int connection = test::connect_to(broker.port());
    std::string bytes = login;
    for (size_t i = 0; i < count; ++i) bytes += publish;
    EXPECT_EQ(::send(connection, bytes.data(), bytes.size(), MSG_NOSIGNAL),
              static_cast<ssize_t>(bytes.size()));
    char answer[4];
    EXPECT_EQ(::recv(connection, answer, sizeof answer, MSG_WAITALL), 4);
    const std::string goodbye = {'\xE0', '\0'};
    EXPECT_EQ(::send(connection, goodbye.data(), goodbye.size(), MSG_NOSIGNAL), 2);
    EXPECT_EQ(::recv(connection, answer, sizeof answer, 0), 0);  // the broker has read it all
    close(connection);
  }
};

TEST_F(SatnavdLog, ALogDaemonThatDoesNotReadStopsNothing) {
  const std::string path = folder / "log";
  const test::LogDaemon daemon(path, SOCK_DGRAM);
  publish_unit();
  const auto simulator = receiver({});
  test::Tap tap(broker);
  const auto service = satnavd("logmode = SYSLOG\n", {},
                               {"env", std::string("LD_PRELOAD=") + LOG_PRELOAD, "SATNAVD_TEST_LOG=" + path,
                                "ASAN_OPTIONS=verify_asan_link_order=0"});
  ASSERT_TRUE(tap.gets(1, test::VALID));
  EXPECT_THAT(
      daemon.received(),
      MatchesRegex("<2[0-9]>[A-Z][a-z][a-z] [ 1-3][0-9] [0-9][0-9]:[0-9][0-9]:[0-9][0-9] satnavd: .*"));
  test::fill(path);
  flood(600);
  EXPECT_TRUE(tap.gets(3, test::VALID));
  while (!daemon.received().empty()) continue;
  // The records of the flood are lost; the loss of the receiver is the next one to be written.
  simulator->signal(SIGKILL);
  std::string records;
  const auto is_told = [&] {
    if (const std::string record = daemon.received(); !record.empty()) records += record + "\n";
    return records.find("went away") != std::string::npos;
  };
  EXPECT_TRUE(test::eventually(is_told, PATIENCE_MS));
  EXPECT_THAT(records, HasSubstr(" records lost\n"));
  test::fill(path);
  service->signal(SIGTERM);
  EXPECT_EQ(service->wait_for_exit(2000), 0);
}

TEST_F(SatnavdLog, AFloodWritesFiftyRecordsAStatement) {
  publish_unit();
  const auto simulator = receiver({});
  test::Tap tap(broker);
  const auto service = satnavd();
  ASSERT_TRUE(tap.gets(1, test::VALID));
  flood(5'000);
  ASSERT_TRUE(tap.gets(2, test::VALID));
  const std::string text = service->err();
  EXPECT_EQ(test::occurrences(text, "Unable to deserialize data for topic"), 50U);
  EXPECT_LE(test::occurrences(text, "\n"), 50U + 50U + 20U);
}

}  // namespace
