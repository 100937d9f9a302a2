// What a service manager hears of the running service.

#include <chrono>
#include <thread>

#include "support/NotifySocket.h"
#include "system/SatnavdTest.h"

namespace {

using test::PATIENCE_MS;

class SatnavdSupervision : public test::SatnavdTest {
 protected:
  /// True when `text` comes so often within the tests' patience.
  bool hears(const std::string& text, int64_t times) {
    return test::eventually(
        [&] {
          for (const auto& each : manager.take()) times -= each == text ? 1 : 0;
          return times <= 0;
        },
        PATIENCE_MS);
  }

  test::NotifySocket manager{folder / "notify"};
};

TEST_F(SatnavdSupervision, TheLoopFeedsWhateverIsMissingAndStopsWithTheProcess) {
  publish_unit();
  const auto service = satnavd("", {}, {"env", "NOTIFY_SOCKET=" + folder / "notify", "WATCHDOG_USEC=600000"});
  EXPECT_TRUE(hears("READY=1", 1));
  EXPECT_TRUE(hears("STATUS=no receiver", 1));
  EXPECT_TRUE(hears("WATCHDOG=1", 5));
  const auto simulator = receiver({});
  EXPECT_TRUE(hears("STATUS=valid fix", 1));
  broker.stop();
  EXPECT_TRUE(hears("STATUS=no broker", 1));
  EXPECT_TRUE(hears("WATCHDOG=1", 10));

  service->signal(SIGSTOP);
  std::this_thread::sleep_for(std::chrono::milliseconds(100));  // it may be in the middle of a feeding
  static_cast<void>(manager.take());
  std::this_thread::sleep_for(std::chrono::milliseconds(1000));
  EXPECT_THAT(manager.take(), testing::IsEmpty());
  service->signal(SIGCONT);
  EXPECT_TRUE(hears("WATCHDOG=1", 2));

  service->signal(SIGTERM);
  EXPECT_EQ(service->wait_for_exit(2000), 0);
  EXPECT_EQ(manager.take().back(), "STOPPING=1");
}

}  // namespace
