// The notifications of the run loop to the service manager.

#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <map>

#include "platform/base/ServiceManager.h"
#include "platform/com/Topics.h"
#include "scenario/World.h"
#include "support/LocalSocket.h"
#include "support/LogCapture.h"
#include "ublox/ReceiverLines.h"

namespace {

using namespace ecu::koru;
using namespace test;
using namespace testing;

struct Heard {
  int64_t at_us;
  std::string text;
};

void setEnvironment(const std::map<std::string, std::string>& values) {
  for (const auto& [name, value] : values) setenv(name.c_str(), value.c_str(), 1);
}

class Supervision : public testing::Test {
 protected:
  Supervision() {
    setEnvironment({{"NOTIFY_SOCKET", name()},
                    {"WATCHDOG_USEC", "3000000"},
                    {"WATCHDOG_PID", std::to_string(getpid())}});
  }
  static std::string name() { return "@satnavd-scenario-" + std::to_string(getpid()); }

  /// Runs the service, and records notifications every 10 ms until `until_us` and at the end.
  void run(World& world, double seconds, int64_t until_us) {
    world.service->setServiceManager(ServiceManager::from_environment());
    for (int64_t at = 0; at <= until_us; at += 10 * MS) world.time.at(at, [&] { drain(world); });
    world.run(seconds);
    drain(world);
  }
  void drain(World& world) {
    for (auto& text : manager.take()) heard.push_back({world.time.now_us(), std::move(text)});
  }

  LocalSocket manager{name()};
  std::vector<Heard> heard;
};

TEST_F(Supervision, EveryModeFeedsAndTellsItsStatus) {
  const struct {
    std::string hasgnss, lacks, status;
  } rows[] = {
      {"true", "",
       "starting, valid fix after 2 s (9 satellites, 3.1 m), "
       "no valid fix: the receiver has been silent for 2 s"},
      {"true", "device",
       "starting, no valid fix: /dev/ttyFP3 cannot be opened: No such file or directory; trying again every "
       "second"},
      {"true", "broker",
       "no broker; starting, no broker; valid fix after 2 s (9 satellites, 3.1 m), no broker; no valid fix: "
       "the receiver has been silent for 2 s"},
      {"true", "switch", "GNSS is switched off"},
      {"false", "", "starting, no valid fix: no time and date arrive over CAN"}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.status);
    heard.clear();
    Script script;
    for (int second = 2; second <= 6; ++second) script.add(second * S, epoch(second));
    script.add(7 * S, nmea("GNRMC,123507.00,V,,,,,,,230326,,,N") + epoch(7, "GGA GSA GST"));
    World world(script, {.hasgnss = row.hasgnss});
    world.terminal.missing = row.lacks == "device";
    world.bus->set_connected(row.lacks != "broker");
    world.service->enableMqttSystemSelection();
    if (row.lacks == "switch") world.inject(topic::PARAMETER_GNSS_ON, std::string(1, '\0'));
    run(world, 12, 12 * S);
    EXPECT_EQ(heard.front().text, "READY=1");
    EXPECT_EQ(heard.back().text, "STOPPING=1");
    std::string status;
    std::vector<int64_t> fed_us;
    for (const auto& [at_us, text] : heard) {
      if (text == "WATCHDOG=1") fed_us.push_back(at_us);
      if (text.starts_with("STATUS=")) status += (status.empty() ? "" : ", ") + text.substr(7);
    }
    EXPECT_EQ(status, row.status);
    ASSERT_THAT(fed_us.size(), AllOf(Ge(5), Le(13)));
    for (size_t i = 1; i < fed_us.size(); ++i) {
      EXPECT_GE(fed_us[i] - fed_us[i - 1], 990 * MS);
      EXPECT_LE(fed_us[i] - fed_us[i - 1], 2990 * MS);
    }
  }
}

TEST_F(Supervision, TheBrokersReturnIsToldAtOnceInEveryMode) {
  for (const char* const hasgnss : {"true", "false"}) {
    heard.clear();
    Script script;
    World world(script, {.hasgnss = hasgnss});
    world.at(5.13, [&] { world.bus->set_connected(false); });
    world.at(7.57, [&] { world.bus->set_connected(true); });
    run(world, 12, 12 * S);
    std::vector<int64_t> told_us;
    for (const auto& [at_us, text] : heard) {
      if (text.starts_with("STATUS=")) told_us.push_back(at_us);
    }
    EXPECT_THAT(told_us, ElementsAre(0, 2010 * MS, 5140 * MS, 7580 * MS));  // looked at every 10 ms
  }
}

TEST_F(Supervision, AStuckPassFeedsNothing) {
  Script script;
  World world(script);
  world.at(5, [&] {  // while the loop waits for the receiver
    drain(world);
    heard.clear();
    for (int second = 0; second < 60; ++second) {
      world.time.clock().advance(1'000'000'000);
      drain(world);
    }
    EXPECT_THAT(heard, IsEmpty());
  });
  run(world, 70, 4 * S);
  EXPECT_GE(std::ranges::count(heard, "WATCHDOG=1", &Heard::text), 3);
}

// Only requested notifications are sent, and a manager that is not there does no harm.
TEST_F(Supervision, TakesTheEnvironmentAsItIs) {
  const test::TempDir folder;
  const std::string path = folder / "notify";
  const LocalSocket other(path);
  const std::string usec = "WATCHDOG_USEC", pid = "WATCHDOG_PID", socket = "NOTIFY_SOCKET";
  const std::vector<std::string> all{"READY=1", "WATCHDOG=1", "STOPPING=1"}, unwatched{all[0], all[2]};
  const struct {
    std::map<std::string, std::string> environment;
    std::vector<std::string> abstract, named;
    bool warns;
  } rows[] = {
      {{}, all, {}, false},
      {{{socket, path}}, {}, all, false},
      {{{pid, "1"}}, unwatched, {}, false},
      {{{pid, "x"}}, unwatched, {}, true},
      {{{usec, "18446744073709551615"}}, unwatched, {}, true},
      {{{socket, "/" + std::string(107, 'x')}}, {}, {}, true},
      {{{socket, folder / "nobody"}}, {}, {}, false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(PrintToString(row.environment));
    unsetenv(pid.c_str());
    setEnvironment({{socket, name()}, {usec, "3000000"}});
    setEnvironment(row.environment);
    LogCapture log;
    const auto service = ServiceManager::from_environment();
    service->ready();
    service->progress();
    service->stopping();
    EXPECT_EQ(manager.take(), row.abstract);
    EXPECT_EQ(other.take(), row.named);
    EXPECT_EQ(occurrences(log.take(), "cannot be used\n"), row.warns ? 1 : 0);
  }
}

TEST_F(Supervision, WhatAFullSocketDoesNotTakeIsSaidLater) {
  const auto filler = ServiceManager::from_environment();
  for (int i = 0; i < 10'000; ++i) filler->stopping();
  const auto service = ServiceManager::from_environment();
  service->status("starting");
  service->ready();
  static_cast<void>(manager.take());
  service->progress();
  EXPECT_THAT(manager.take(), ElementsAre("READY=1", "WATCHDOG=1", "STATUS=starting"));
}

// An exported line belongs to root until udev has applied its rule.
TEST(ReceiverLinesOfAUser, WaitForTheirGroup) {
  using std::filesystem::perms;
  Script nothing;
  World world(nothing);
  const test::TempDir gpio;
  std::filesystem::create_directory(gpio / "gpio197");
  const std::string direction = gpio.write("gpio197/direction", "in"), edge = gpio.write("gpio197/edge", "");
  const uid_t before = geteuid(), user = before == 0 ? 65534 : before;
  for (const auto& path : {direction, edge}) {
    std::filesystem::permissions(path, perms::owner_read);
    EXPECT_EQ(chown(path.c_str(), user, getegid()), 0);
    world.at(0.2, [path] { std::filesystem::permissions(path, perms(0600)); });
  }
  EXPECT_EQ(seteuid(user), 0);
  gpspub::ReceiverLines(gpspub::ReceiverLines::USUAL_LINE, gpio.path()).configureHardwareResetPin();
  EXPECT_EQ(seteuid(before), 0);
  EXPECT_EQ(world.time.now_us(), 200 * MS);
  EXPECT_EQ(text_of(direction), "out");
}

}  // namespace
