#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>

#include "platform/base/LogOutput.h"
#include "platform/base/Logging.h"
#include "support/LocalSocket.h"
#include "support/LogCapture.h"
#include "support/VirtualClock.h"

using namespace ecu::koru;
using namespace std::string_literals;
using namespace testing;

namespace {

std::string g_log_path;

}  // namespace

int connect(int descriptor, const sockaddr* address, socklen_t length) {
  static auto* const real = reinterpret_cast<decltype(&connect)>(dlsym(RTLD_NEXT, "connect"));
  const auto [log, log_length] = test::unix_address(g_log_path);
  if (std::string_view(address->sa_data, sizeof _PATH_LOG) != std::string_view(_PATH_LOG, sizeof _PATH_LOG))
    return real(descriptor, address, length);
  return real(descriptor, reinterpret_cast<const sockaddr*>(&log), log_length);
}

TEST(Logging, RecordsAreOneLineEach) {
  const test::VirtualClock clock(0, 1'795'256'130'123'999);
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
}

TEST(Logging, TextFromOutsideIsCut) {
  const std::string longest(200, 'x');
  EXPECT_EQ(logging::escaped(longest), longest);
  EXPECT_EQ(logging::escaped(longest + "\n"), longest + "...");
  EXPECT_EQ(logging::escaped(longest + "\n", std::string_view::npos), longest + "\\x0A");
}

TEST(Logging, RecordsThatTheSystemsLogDoesNotTakeAreCounted) {
  const test::TempDir folder;
  g_log_path = folder / "log";
  const test::LocalSocket daemon(g_log_path);
  const test::VirtualClock clock(0, 1'795'256'130'123'999);
  logging::set_log_mode(logging::LogMode::SYSLOG);
  constexpr auto LOG = logging::module("koru.test");
  LOG.info("taken");
  const std::string taken = daemon.received();
  logging::SyslogOutput filler(g_log_path);
  while (filler.put("x")) continue;
  for (int i = 0; i < 3; ++i) LOG.notice("lost");
  while (!daemon.received().empty()) continue;
  logging::tell_kept_back();
  const std::string told = daemon.received();
  LOG.error("taken again");
  logging::set_log_mode(logging::LogMode::STDERR);
  EXPECT_THAT(taken, MatchesRegex("<30>Nov 2[0-2] ..:..:30 satnavd: taken"));
  EXPECT_THAT(told, MatchesRegex("<28>Nov 2[0-2] ..:..:30 satnavd: 3 records lost"));
  EXPECT_THAT(daemon.received(), MatchesRegex("<27>.* satnavd: taken again"));
  EXPECT_EQ(daemon.received(), "");
}

TEST(Logging, AStatementWritesFiftyRecordsInTenSeconds) {
  constexpr auto LOG = logging::module("koru.test");
  test::VirtualClock clock;
  const auto begin_ns = clock.time.steady_ns();
  test::LogCapture log;
  for (int i = 0; i < 60; ++i) {
    LOG.warning("flood ", i);
    LOG.detail("wanted");
    for (const char* text : {"one", "two"}) LOG.error(std::string(text), i);  // one statement writes both
    clock.time.advance(100'000'000);
  }
  LOG.notice("another statement");
  clock.time.advance(begin_ns + 9'999'999'999 - clock.time.steady_ns());
  logging::tell_kept_back();
  LOG.info("before the end of the period");
  clock.time.advance(1);
  logging::tell_kept_back();
  logging::tell_kept_back();
  for (int i = 0; i < 51; ++i) LOG.info("flood ", i);
  for (int i = 0; i < 2; ++i) logging::tell_all_kept_back();
  const std::string text = log.take();
  const std::pair<const char*, size_t> written[] = {{"WARNING koru.test: flood", 50},
                                                    {"wanted", 60},
                                                    {"ERROR koru.test: ", 50 + 1},
                                                    {"INFO koru.test: flood", 50},
                                                    {" more like: ", 3}};
  for (const auto& [part, times] : written) EXPECT_EQ(test::occurrences(text, part), times) << part;
  const std::string at_the_end = text.substr(text.find("before the end of the period"));
  EXPECT_THAT(at_the_end, HasSubstr("WARNING koru.test: 10 more like: flood 59\n"));
  EXPECT_THAT(at_the_end, HasSubstr("ERROR koru.test: 70 more like: two59\n"));
}

TEST(Logging, TheSystemsLogNeverWaitsAndIsFoundAgain) {
  const test::TempDir folder;
  const std::string path = folder / "log";
  logging::SyslogOutput output(path);
  test::VirtualClock clock;
  EXPECT_FALSE(output.put("nobody is there"));
  {
    const test::LocalSocket daemon(path);
    EXPECT_TRUE(output.put("<30>a"));
    EXPECT_EQ(daemon.received(), "<30>a");
    int taken = 0;
    while (taken < 100'000 && output.put("b")) ++taken;
    EXPECT_LT(taken, 100'000);
    while (!daemon.received().empty()) --taken;
    EXPECT_EQ(taken, 0);
    EXPECT_TRUE(output.put("c"));
    EXPECT_FALSE(output.put(std::string(8'000'000, 'x')));  // longer than any datagram
    while (output.put("d")) continue;
    unlink(path.c_str());
    clock.time.advance(1'000'000'000);
    EXPECT_FALSE(output.put("no other socket is there"));
    EXPECT_EQ(daemon.received(), "c");
    EXPECT_TRUE(output.put("the old one is kept"));
    const test::LocalSocket replacing(path);  // the old one is still open and full
    EXPECT_FALSE(output.put("within the same second"));
    clock.time.advance(1'000'000'000);
    EXPECT_TRUE(output.put("found"));
    EXPECT_EQ(replacing.received(), "found");
  }
  EXPECT_FALSE(output.put("it has gone"));
  clock.time.advance(1'000'000'000);
  const test::LocalSocket stream(path, SOCK_STREAM);
  for (const char* record : {"<30>e", "<30>f"}) EXPECT_TRUE(output.put(record));
  EXPECT_EQ(stream.received(), "<30>e\0<30>f\0"s);
}

TEST(Logging, AFullPipeOrSocketLosesWholeRecords) {
  for (const bool is_socket : {false, true}) {
    int ends[2];
    ASSERT_EQ(is_socket ? socketpair(AF_UNIX, SOCK_STREAM, 0, ends) : pipe(ends), 0);
    logging::StreamOutput output(ends[1]);
    const std::string line = std::string(4998, 'x') + "\n";  // what fits is no multiple of its length
    int taken = 0;
    while (taken < 10'000 && output.put(line)) ++taken;
    EXPECT_GT(taken, 5);
    EXPECT_LT(taken, 10'000);
    EXPECT_FALSE(output.put("lost\n"));
    std::string text(1 << 23, '\0');
    auto length = static_cast<size_t>(::read(ends[0], text.data(), text.size()));
    EXPECT_TRUE(output.put("taken again\n"));
    length += static_cast<size_t>(::read(ends[0], text.data() + length, text.size() - length));
    text.resize(length);
    EXPECT_EQ(test::occurrences(text, line), static_cast<size_t>(taken));
    EXPECT_THAT(text, EndsWith(line + "taken again\n"));
    EXPECT_EQ(test::occurrences(text, "lost"), 0U);
    close(ends[0]);
    (void)signal(SIGPIPE, SIG_IGN);
    EXPECT_FALSE(output.put("nobody reads\n"));
    (void)signal(SIGPIPE, SIG_DFL);
    close(ends[1]);
  }
}
