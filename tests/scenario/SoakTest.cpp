// Long drives in virtual time: every second has its fix, with its own time, on MQTT and on CAN.

#include <gmock/gmock.h>
#include <malloc.h>

#include <utility>

#include "platform/com/Topics.h"
#include "scenario/World.h"
#include "sim/gnss/Utc.h"

namespace {

using namespace ecu::koru;
using namespace test;

constexpr int64_t BURST_US = 300'000;  // after the full second
constexpr int64_t HOUR = 3600;
constexpr int64_t DAY = 24 * HOUR;

/// The receiver's output in a second. Without a fix, its sentences hold only the time.
enum class Kind { full, no_fix, silent };

/// Repeats a quarter of an hour with a tunnel and a silent receiver.
Kind kindOf(int64_t second) {
  const int64_t at = second % 907;
  if (at >= 300 && at < 345) return Kind::no_fix;
  return at >= 500 && at < 520 ? Kind::silent : Kind::full;
}

/// A drive: its start in UTC, its length, and the unit's uptime before it.
struct Drive {
  const char* begin;
  int64_t seconds;
  int64_t uptime_s = 0;
  bool leap_second = false;  // the day that ends during the drive has one

  [[nodiscard]] int64_t utcStart() const { return sim::parse_iso8601(begin).value() / S; }
  /// Returns the first second of the next day, counted from the start.
  [[nodiscard]] int64_t midnight() const { return DAY - utcStart() % DAY; }
  [[nodiscard]] bool isLeapSecond(int64_t second) const { return leap_second && second == midnight(); }
  /// Counts as POSIX does: a leap second has the number of the second after it.
  [[nodiscard]] int64_t utc(int64_t second) const {
    return utcStart() + second - (leap_second && second > midnight() ? 1 : 0);
  }
};

/// Sends each second's bytes at once, and creates them when they are due.
class DrivingReceiver final : public Script {
 public:
  explicit DrivingReceiver(const Drive& drive) : m_drive(drive) {}

  void advance_to(int64_t now_us) override {
    for (; next_byte_us() <= now_us; ++m_next) add(next_byte_us(), bytesOf(m_next));
    Script::advance_to(now_us);
  }
  [[nodiscard]] int64_t next_byte_us() const override {
    return m_next >= m_drive.seconds ? INT64_MAX : (m_drive.uptime_s + m_next) * S + BURST_US;
  }

 private:
  [[nodiscard]] std::string bytesOf(int64_t second) const {
    const bool leap = m_drive.isLeapSecond(second);
    const time_t utc = m_drive.utc(second) - (leap ? 1 : 0);
    std::tm parts{};
    gmtime_r(&utc, &parts);
    if (leap) parts.tm_sec = 60;
    char time[16], date[16];
    EXPECT_GT(strftime(time, sizeof time, "%H%M%S.00", &parts), 0U);
    EXPECT_GT(strftime(date, sizeof date, "%d%m%y", &parts), 0U);
    if (kindOf(second) == Kind::silent) return {};
    if (kindOf(second) == Kind::full) return sentences(time, date, "RMC GGA GSA GSA GST");
    return nmea(std::string("GNRMC,") + time + ",V,,,,,,," + date + ",,,N") +
           nmea(std::string("GNGGA,") + time + ",,,,,0,00,99.99,,,,,,") + nmea("GNGSA,A,1,,,,,,,,,,,,,,,") +
           nmea(std::string("GNGST,") + time + ",,,,,,,");
  }

  const Drive& m_drive;
  int64_t m_next = 0;
};

/// Compares the traffic with the drive while it happens, until the first difference.
class Listener final : public com::ISubscriptionObserver {
 public:
  explicit Listener(const Drive& drive) : m_drive(drive) {
    for (int64_t second = 0; second < drive.seconds; ++second) m_seconds[kindOf(second)].push_back(second);
  }

  void message(const std::string& topic, const com::Message& message) override {
    if (testing::Test::HasFailure()) return;
    topic == topic::GNSS_DATA ? takeFix(message) : takeTimeDate(message);
  }
  void expectAll() {
    EXPECT_EQ(m_mqtt, m_seconds[Kind::full].size());
    EXPECT_EQ(m_can, m_seconds[Kind::full].size());
    EXPECT_EQ(m_statuses[2], m_seconds[Kind::no_fix].size());
    EXPECT_EQ(m_statuses[1], m_seconds[Kind::silent].size() + 1);  // and the second after the drive
  }

 private:
  /// Returns the second that is due now: only full ones are published with a date, at their last byte.
  int64_t take(size_t& next) {
    const auto& dated = m_seconds[Kind::full];
    const int64_t second = next < dated.size() ? dated[next++] : -1;
    EXPECT_LE(time_source().boot_ns(), burstNs(second) + 10'000'000) << "second " << second;
    return second;
  }
  [[nodiscard]] int64_t burstNs(int64_t second) const {
    return ScenarioTime::START_NS + ((m_drive.uptime_s + second) * S + BURST_US) * 1000;
  }
  void takeFix(const com::Message& message) {
    const auto fix = bodyOf<pb::GnssData>(message);
    ++m_statuses[fix.status()];
    if (fix.status() != 3 && !fix.has_utc_time_us()) return;
    const int64_t second = take(m_mqtt);
    EXPECT_EQ(fix.status(), 3) << "second " << second;
    EXPECT_TRUE(fix.has_utc_time_us()) << "second " << second;
    EXPECT_EQ(static_cast<int64_t>(fix.utc_time_us()), m_drive.utc(second) * S);
    EXPECT_THAT(burstNs(second) - static_cast<int64_t>(fix.timestamp_ns()),
                testing::AllOf(testing::Ge(0), testing::Le(30'000'000)));
  }
  void takeTimeDate(const com::Message& message) {
    constexpr size_t SECONDS = 20, DAY_OF_MONTH = 24;  // offsets in the payload, whose envelope has 18 bytes
    if (message.payload.at(DAY_OF_MONTH) == 0xFF) return;
    const int64_t second = take(m_can);
    const int leap = m_drive.isLeapSecond(second) ? 1 : 0;
    EXPECT_EQ(message.payload[SECONDS], ((m_drive.utc(second) - leap) % 60 + leap) * 4) << second;
  }

  const Drive& m_drive;
  std::map<Kind, std::vector<int64_t>> m_seconds;
  size_t m_mqtt = 0, m_can = 1;  // the very first fix is not trusted yet
  std::map<int, size_t> m_statuses;
};

/// Drives and expects every fix. Returns the bytes in use after the first hour and at the end.
std::pair<size_t, size_t> drive(const Drive& plan) {
  DrivingReceiver receiver(plan);
  World world(receiver, {.hwversion = "zpt", .hardware_init = false});
  const auto listener = std::make_shared<Listener>(plan);
  for (const auto& topic : {topic::GNSS_DATA, topic::TD_TX}) world.bus->subscribe(topic, listener, 0);
  world.time.advance_to_us(plan.uptime_s * S);
  std::pair<size_t, size_t> memory{};
  std::function<void()> each_hour = [&] {
    world.bus->clear_records();
    world.terminal = {};  // the terminal records every open after a silence
    memory.second = mallinfo2().uordblks;
    if (memory.first == 0) memory.first = memory.second;
    world.time.at(world.time.now_us() + HOUR * S, each_hour);
  };
  world.time.at((plan.uptime_s + HOUR) * S - S / 2, each_hour);
  world.run(static_cast<double>(plan.uptime_s + plan.seconds + 1));
  listener->expectAll();
  return memory;
}

TEST(Soak, EverySecondOfALongDriveHasItsFixAndMemoryStays) {
  // The new year and the 2^31st millisecond of the uptime are in its first day. 32-bit builds run in an
  // emulator, which is slow.
  constexpr int64_t LENGTH = sizeof(void*) == 4 ? DAY : 7 * DAY;
  const Drive long_drive{"2027-12-31T05:00:00Z", LENGTH, (int64_t{1} << 31) / 1000 - HOUR};
  const auto [first, last] = drive(long_drive);
  EXPECT_LE(last, first + 16384);
}

TEST(Soak, CalendarEdgesAreSecondsLikeOthers) {
  const Drive edges[] = {
      {"2026-11-30T21:00:00Z", 6 * HOUR, (int64_t{1} << 32) / 1000 - 3 * HOUR},  // the uptime passes 2^32 ms
      {"2027-02-28T21:00:00Z", 6 * HOUR},
      {"2024-02-28T21:00:00Z", 30 * HOUR},  // both ends of a leap day
      {"2028-02-28T21:00:00Z", 30 * HOUR},
      {"2038-01-19T00:00:00Z", 6 * HOUR},  // 2^31 s since 1970
      {"2016-12-31T21:00:00Z", 6 * HOUR, 0, true},
      {"1999-12-31T21:00:00Z", 6 * HOUR},
      {"1970-01-01T00:00:00Z", 6 * HOUR},  // the first day that a fix can have
      {"2068-12-31T18:00:00Z", 6 * HOUR},  // the last day
  };
  for (const Drive& edge : edges) {
    SCOPED_TRACE(edge.begin);
    drive(edge);
  }
}

}  // namespace
