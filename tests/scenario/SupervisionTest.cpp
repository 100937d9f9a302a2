// What the service manager hears of the run loop.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>

#include "platform/ServiceManager.h"
#include "platform/Topics.h"
#include "scenario/World.h"
#include "support/LogCapture.h"
#include "support/NotifySocket.h"
#include "ublox/ReceiverLines.h"

namespace {

using test::World;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr int64_t S = 1'000'000;

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

  /// Writes down every 10 ms what has come.
  void listen(World& world, int64_t until_us) {
    for (int64_t at = 0; at <= until_us; at += 10'000) world.time.at(at, [&] { drain(world); });
  }
  /// By the parameter on the bus.
  static void switch_off(World& world) {
    world.service->enableMqttSystemSelection();
    world.inject(ecu::koru::topic::PARAMETER_GNSS_ON, std::string(1, '\0'));
  }
  void drain(World& world) {
    for (auto& text : manager.take()) heard.push_back({world.time.now_us(), std::move(text)});
  }
  std::vector<Heard> all(const std::string& text) const {
    std::vector<Heard> found;
    std::copy_if(heard.begin(), heard.end(), std::back_inserter(found),
                 [&](const Heard& each) { return each.text.starts_with(text); });
    return found;
  }

  test::NotifySocket manager{name()};
  std::vector<Heard> heard;
};

// Whatever the loop does, it feeds every second: with a receiver, without its device, switched off, without a
// receiver of its own.
TEST_F(Supervision, EveryModeFeedsAndTellsItsStatus) {
  const struct {
    const char* what;
    std::string hasgnss;
    bool missing, on, broker;
    std::vector<std::string> status;
  } rows[] = {
      {"receiver",
       "true",
       false,
       true,
       true,
       {"STATUS=no fix", "STATUS=valid fix", "STATUS=fix with a warning", "STATUS=no fix"}},
      {"no device", "true", true, true, true, {"STATUS=no receiver"}},
      {"no broker", "true", false, true, false, {"STATUS=no broker"}},
      {"off", "true", false, false, true, {"STATUS=GNSS is switched off"}},
      {"CAN input", "false", false, true, true, {"STATUS=no fix"}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    heard.clear();
    test::Script script;
    for (int second = 2; second <= 6; ++second) script.add(second * S, test::epoch(second));
    script.add(7 * S, test::nmea("GNRMC,123507.00,V,,,,,,,230326,,,N") + test::epoch(7, "GGA GSA GST"));
    World::Options options;
    options.hasgnss = row.hasgnss;
    World world(script, options);
    world.terminal.missing = row.missing;
    world.bus->set_connected(row.broker);
    world.service->setServiceManager(ecu::koru::ServiceManager::from_environment());
    if (!row.on) switch_off(world);
    listen(world, 12 * S);
    world.run(12);
    drain(world);
    EXPECT_EQ(heard.front().text, "READY=1");
    EXPECT_EQ(heard.back().text, "STOPPING=1");
    const auto fed = all("WATCHDOG=1");
    ASSERT_THAT(fed.size(), testing::AllOf(testing::Ge(5), testing::Le(13)));
    for (size_t i = 1; i < fed.size(); ++i) {
      EXPECT_GE(fed[i].at_us - fed[i - 1].at_us, 990'000);
      EXPECT_LE(fed[i].at_us - fed[i - 1].at_us, 3 * S - 10'000);
    }
    std::vector<std::string> status;
    for (const auto& each : all("STATUS=")) status.push_back(each.text);
    EXPECT_EQ(status, row.status);
  }
}

// The watchdog is there for this: a pass that does not end.
TEST_F(Supervision, AStuckPassFeedsNothing) {
  test::Script script;
  World world(script);
  world.service->setServiceManager(ecu::koru::ServiceManager::from_environment());
  world.time.at(5 * S, [&] {  // while the loop waits for the receiver
    drain(world);
    heard.clear();
    for (int second = 0; second < 60; ++second) {
      world.time.clock().advance(1'000'000'000);
      drain(world);
    }
    EXPECT_THAT(heard, IsEmpty());
  });
  listen(world, 4 * S);
  world.run(70);
  drain(world);
  EXPECT_THAT(all("WATCHDOG=1"), testing::SizeIs(testing::Ge(3)));
}

// Nothing blocks or is lost when the manager does not read; nothing is said that was not asked for.
TEST_F(Supervision, TakesTheEnvironmentAsItIs) {
  using Texts = std::vector<std::string>;
  const test::TempDir folder;
  const std::string path = folder / "notify";
  test::NotifySocket other(path);
  const std::string usec = "WATCHDOG_USEC", pid = "WATCHDOG_PID", socket = "NOTIFY_SOCKET";
  const struct {
    std::map<std::string, std::string> environment;
    Texts abstract, named;
    std::string warning;
  } rows[] = {
      {{}, {"READY=1", "WATCHDOG=1", "STOPPING=1"}, {}, ""},
      {{{socket, path}}, {}, {"READY=1", "WATCHDOG=1", "STOPPING=1"}, ""},
      {{{pid, "1"}}, {"READY=1", "STOPPING=1"}, {}, ""},
      {{{pid, "x"}}, {"READY=1", "STOPPING=1"}, {}, "WARNING koru.manager: WATCHDOG_PID x cannot be used\n"},
      {{{usec, "18446744073709551615"}}, {"READY=1", "STOPPING=1"}, {}, "cannot be used\n"},
      {{{socket, "/" + std::string(107, 'x')}}, {}, {}, "cannot be used\n"},
      {{{socket, folder / "nobody"}}, {}, {}, ""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::PrintToString(row.environment));
    std::map<std::string, std::string> usual{{socket, name()}, {usec, "3000000"}};
    for (const auto& [key, value] : row.environment) usual[key] = value;
    unsetenv(pid.c_str());
    setEnvironment(usual);
    test::LogCapture log;
    const auto service = ecu::koru::ServiceManager::from_environment();
    service->ready();
    service->progress();
    service->stopping();
    EXPECT_EQ(manager.take(), row.abstract);
    EXPECT_EQ(other.take(), row.named);
    EXPECT_THAT(log.take(),
                row.warning.empty() ? testing::Matcher<std::string>(IsEmpty()) : HasSubstr(row.warning));
  }
}

TEST_F(Supervision, WhatAFullSocketDoesNotTakeIsSaidLater) {
  const auto filler = ecu::koru::ServiceManager::from_environment();
  for (int i = 0; i < 10'000; ++i) filler->stopping();
  const auto service = ecu::koru::ServiceManager::from_environment();
  service->status("starting");
  service->ready();
  static_cast<void>(manager.take());
  service->progress();
  EXPECT_THAT(manager.take(), ElementsAre("READY=1", "WATCHDOG=1", "STATUS=starting"));
}

// An exported line belongs to root until udev's rule was applied.
TEST(ReceiverLinesOfAUser, WaitForTheirGroup) {
  test::Script nothing;
  World world(nothing);
  const test::TempDir gpio;
  std::filesystem::create_directory(gpio / "gpio197");
  const std::string direction = gpio.write("gpio197/direction", "in"), edge = gpio.write("gpio197/edge", "");
  constexpr uid_t USER = 65534;
  const bool is_root = geteuid() == 0;
  for (const auto& path : {direction, edge}) {
    std::filesystem::permissions(path, std::filesystem::perms::owner_read);
    EXPECT_EQ(chown(path.c_str(), is_root ? USER : geteuid(), getegid()), 0);
  }
  EXPECT_EQ(seteuid(is_root ? USER : geteuid()), 0);
  world.time.at(200'000, [&] {
    for (const auto& path : {direction, edge})
      std::filesystem::permissions(path, std::filesystem::perms(0600));
  });
  ecu::koru::gpspub::ReceiverLines("qrx", gpio.path()).configureHardwareResetPin();
  EXPECT_EQ(seteuid(is_root ? 0 : geteuid()), 0);
  EXPECT_EQ(world.time.now_us(), 200'000);
  std::ifstream written(direction);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(written), {}), "out");
}

}  // namespace
