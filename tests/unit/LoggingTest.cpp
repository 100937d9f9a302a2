// Records and the places that they go to.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>

#include "platform/LogOutput.h"
#include "platform/Logging.h"
#include "platform/Time.h"
#include "support/LogCapture.h"
#include "support/LogDaemon.h"
#include "support/Support.h"

using namespace ecu::koru;
using namespace std::string_literals;
using testing::EndsWith;
using testing::HasSubstr;

TEST(Logging, RecordsAreOneLineEach) {
  VirtualTime time(0, 1'795'256'130'123'999);
  set_time_source(&time);
  constexpr auto LOG = logging::module("koru.test");
  struct Costly {
    mutable int formatted = 0;
    operator std::string_view() const { return ++formatted, "x"; }
  } costly;
  logging::configure_logging("NOTICE");
  testing::internal::CaptureStderr();
  EXPECT_FALSE(logging::configure_logging("notice"));
  LOG.info("", costly);
  LOG.notice("", costly, uint64_t{18446744073709551615U}, ' ', int64_t{-5}, ' ', uint8_t{65}, true, ' ', 0.1,
             ' ', logging::hex(0xAB), ' ', logging::hex(10, 4), "."s);
  errno = 5;
  LOG.alert(logging::escaped("a\n\x7F\xFF~ "));
  EXPECT_EQ(errno, 5);
  EXPECT_EQ(costly.formatted, 1);
  const std::string text = testing::internal::GetCapturedStderr();
  logging::configure_logging("INFO");
  EXPECT_THAT(
      text, HasSubstr("Z ERROR koru.logging: log level 'notice' does not exist; expected EMERG, ALERT, CRI"));
  EXPECT_THAT(
      text, EndsWith("\n2026-11-21T10:15:30.123Z NOTICE koru.test: x18446744073709551615 -5 651 0.1 ab 000a."
                     "\n2026-11-21T10:15:30.123Z ALERT koru.test: a\\x0A\\x7F\\xFF~ \n"));
  set_time_source(nullptr);
}

TEST(Logging, TextFromOutsideIsCut) {
  const std::string longest(200, 'x');
  EXPECT_EQ(logging::escaped(longest), longest);
  EXPECT_EQ(logging::escaped(longest + "\n"), longest + "...");
  EXPECT_EQ(logging::escaped(longest + "\n", std::string_view::npos), longest + "\\x0A");
}

TEST(Logging, AStatementWritesFiftyRecordsInTenSeconds) {
  constexpr auto LOG = logging::module("koru.test");
  VirtualTime time;
  set_time_source(&time);
  const auto begin_ns = time.steady_ns();
  test::LogCapture log;
  for (int i = 0; i < 60; ++i) {
    LOG.warning("flood ", i);
    LOG.detail("wanted");
    for (const char* text : {"one", "two"}) LOG.error(std::string(text), i);  // one statement
    time.advance(100'000'000);
  }
  LOG.notice("another statement");
  time.advance(begin_ns + 9'999'999'999 - time.steady_ns());
  logging::tell_kept_back();
  LOG.info("before the end of the period");
  time.advance(1);
  logging::tell_kept_back();
  logging::tell_kept_back();
  for (int i = 0; i < 51; ++i) LOG.info("flood ", i);
  const std::string text = log.take();
  set_time_source(nullptr);
  EXPECT_EQ(test::occurrences(text, "WARNING koru.test: flood"), 50U);
  EXPECT_EQ(test::occurrences(text, "wanted"), 60U);
  EXPECT_EQ(test::occurrences(text, "ERROR koru.test: "), 50U + 1);
  EXPECT_EQ(test::occurrences(text, "INFO koru.test: flood"), 50U);
  const std::string at_the_end = text.substr(text.find("before the end of the period"));
  EXPECT_THAT(at_the_end, HasSubstr("WARNING koru.test: 10 more like: flood 59\n"));
  EXPECT_THAT(at_the_end, HasSubstr("ERROR koru.test: 70 more like: two59\n"));
  EXPECT_EQ(test::occurrences(text, " more like: "), 2U);
}

TEST(Logging, TheSystemsLogNeverWaitsAndIsFoundAgain) {
  const test::TempDir folder;
  const std::string path = folder / "log";
  logging::SyslogOutput output(path);
  EXPECT_FALSE(output.put("nobody is there"));
  {
    const test::LogDaemon daemon(path, SOCK_DGRAM);
    EXPECT_TRUE(output.put("<30>a"));
    EXPECT_EQ(daemon.received(), "<30>a");
    int taken = 0;
    while (taken < 100'000 && output.put("b")) ++taken;
    EXPECT_LT(taken, 100'000);
    while (!daemon.received().empty()) --taken;
    EXPECT_EQ(taken, 0);
    EXPECT_TRUE(output.put("c"));
    std::string huge;
    huge.resize(10'000'000, 'x');
    EXPECT_FALSE(output.put(huge));  // longer than any datagram
    EXPECT_TRUE(output.put("d"));
  }
  EXPECT_FALSE(output.put("it has gone"));
  const test::LogDaemon again(path, SOCK_DGRAM);
  EXPECT_TRUE(output.put("e"));
  EXPECT_EQ(again.received(), "e");
}

TEST(Logging, TheSystemsLogMayBeAStream) {
  const test::TempDir folder;
  const test::LogDaemon daemon(folder / "log", SOCK_STREAM);
  logging::SyslogOutput output(folder / "log");
  EXPECT_TRUE(output.put("<30>a"));
  const int connection = daemon.accepted();
  EXPECT_TRUE(output.put("<30>b"));
  EXPECT_EQ(daemon.received(connection), "<30>a\0<30>b\0"s);
  close(connection);
}

TEST(Logging, AFullPipeOrSocketLosesWholeRecords) {
  for (const bool is_socket : {false, true}) {
    int ends[2];
    ASSERT_EQ(is_socket ? socketpair(AF_UNIX, SOCK_STREAM, 0, ends) : pipe(ends), 0);
    const int reader = ends[0];
    logging::StreamOutput output(ends[1]);
    const std::string line = std::string(4998, 'x') + "\n";  // no divisor of what fits
    int taken = 0;
    while (taken < 10'000 && output.put(line)) ++taken;
    EXPECT_GT(taken, 5);
    EXPECT_LT(taken, 10'000);
    EXPECT_FALSE(output.put("lost\n"));
    std::string text;
    const auto read_some = [&] {
      std::string bytes(1 << 22, '\0');
      const ssize_t count = ::read(reader, bytes.data(), bytes.size());
      text += bytes.substr(0, static_cast<size_t>(std::max<ssize_t>(count, 0)));
    };
    read_some();
    EXPECT_TRUE(output.put("taken again\n"));
    read_some();
    EXPECT_EQ(test::occurrences(text, line), static_cast<size_t>(taken));
    EXPECT_THAT(text, EndsWith(line + "taken again\n"));
    EXPECT_EQ(test::occurrences(text, "lost"), 0U);
    close(reader);
    (void)signal(SIGPIPE, SIG_IGN);
    EXPECT_FALSE(output.put("nobody reads\n"));
    (void)signal(SIGPIPE, SIG_DFL);
    close(ends[1]);
  }
}
