#include <gtest/gtest.h>

#include <atomic>
#include <sstream>
#include <thread>
#include <utility>
#include <vector>

#include "nmea/EpochAssembly.h"
#include "platform/base/Time.h"
#include "platform/base/WakeUp.h"
#include "support/Frames.h"

using namespace ecu::koru;
using namespace ecu::koru::gpspub;

namespace {

/// Steps: "r" an RMC, "c" a complete epoch, "s" the published fix is sent, "h" it is held back; each with its
/// time in ms.
struct Epochs final : IEpochOwner {
  explicit Epochs(const std::string& steps) {
    std::istringstream words(steps);
    char step = 0;
    for (int64_t ms = 0; words >> step >> ms;) {
      epoch.setDataTime(ms * 1000, 0);
      if (step == 'r' || step == 'c')
        take("GNRMC,123501.00,A,4807.03800,N,01131.00000,E,22.400,84.40,230326,,,A");
      if (step == 'c') {
        for (const char* const body :
             {"GNGSA,A,3,,,,,,,,,,,,,1.9,1.1,1.5", "GNGSA,A,3,,,,,,,,,,,,,1.9,1.1,1.5",
              "GNGST,123501.00,1.5,,,,2.5,3.1,4.0"})
          take(body);
      }
      if (step == 's') epoch.frameSent(ms * 1000, epoch.infoSent().m_utc_tm);
      if (step == 'h') epoch.holdBack();
    }
  }
  void publishGnssData() override { epoch.rotate(1); }
  void checkSetSystemTime() override {}
  void take(const std::string& body) {
    std::string line = test::nmea(body);
    line.back() = '\0';
    ASSERT_TRUE(
        epoch.validateNmeaMessage({reinterpret_cast<const unsigned char*>(line.data()), line.size()}));
    epoch.processNewNmeaString(38400);
  }

  EpochAssembly epoch{*this};
};

TEST(Deadlines, OfAFrame) {
  const struct {
    const char* steps;
    int64_t due_ms, due_with_more_ms;  ///< the last ms in which no frame is due
  } rows[] = {{"", 1000, 1000},
              {"s 300", 1300, 1300},
              {"c 300 s 300", 1600, 1600},
              {"c 300 s 300 s 1600", 1600 + 1000, 1600 + 1000},
              {"c 300 s 300 r 1200", 1600, 1200 + 1300},
              {"c 300 s 300 r 1400", 1400 + 300, 1400 + 1300},
              {"c 300 s 300 c 550 h 550 c 800 h 800", 800 + 1300, 800 + 1300}};
  for (const auto& row : rows) {
    Epochs epochs(row.steps);
    const EpochAssembly& epoch = epochs.epoch;
    for (const auto& [more, ms] : {std::pair(false, row.due_ms), std::pair(true, row.due_with_more_ms)}) {
      EXPECT_EQ(epoch.frameDue(more), ms * 1000 + 1) << row.steps;
      EXPECT_FALSE(epoch.isFrameDue(ms * 1000, more)) << row.steps;
      EXPECT_TRUE(epoch.isFrameDue(ms * 1000 + 1, more)) << row.steps;
    }
  }
}

// Each side answers the other's change and then waits. A wake-up that got lost would cost a minute.
TEST(Deadlines, NoWakeUpIsLost) {
  constexpr int ROUNDS = 20'000;
  constexpr int64_t MINUTE_NS = 60'000'000'000;
  WakeUp ping, pong;
  std::atomic<int> pings = 0, pongs = 0;
  const auto wait_for = [](WakeUp& wake, const std::atomic<int>& count, int wanted) {
    while (count < wanted) {
      if (!time_source().wait_ns(wake, MINUTE_NS)) return false;
    }
    return true;
  };
  std::thread other([&] {
    for (int i = 1; i <= ROUNDS && wait_for(ping, pings, i); ++i) {
      pongs = i;
      pong.wake();
    }
  });
  for (int i = 1; i <= ROUNDS; ++i) {
    pings = i;
    ping.wake();
    ASSERT_TRUE(wait_for(pong, pongs, i));
  }
  other.join();
  ping.wake();
  EXPECT_TRUE(ping.pending());
  EXPECT_TRUE(time_source().wait_ns(ping, 0));
  EXPECT_FALSE(ping.pending());
  EXPECT_FALSE(time_source().wait_ns(ping, 1));
}

}  // namespace
