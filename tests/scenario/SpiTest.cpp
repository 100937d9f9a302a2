// The receiver on the SPI bus: the whole service and the simulated receiver, joined by transfers and a line.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "scenario/World.h"
#include "support/FakeSpi.h"
#include "support/Frames.h"
#include "support/LogCapture.h"

namespace {

using namespace ecu::koru;
using namespace test;

constexpr int64_t S = 1'000'000;
constexpr int64_t US_PER_BYTE = 8;  // 1 MHz

class SpiReceiver final : public FakeSpi {
 public:
  SpiReceiver(ScenarioTime& time, const sim::ReceiverOptions& options) : receiver(options), m_time(time) {}
  sim::Receiver receiver;

 private:
  void exchange(std::span<const uint8_t> from_host, std::span<uint8_t> to_host) override {
    receiver.advance_to(m_time.now_us());
    receiver.transfer(from_host, to_host);
    m_time.advance_to_us(m_time.now_us() + US_PER_BYTE * static_cast<int64_t>(to_host.size()));
  }
  bool is_line_high() override {
    receiver.advance_to(m_time.now_us());
    return receiver.tx_ready_level();
  }
  bool waitForEdge(int timeout_us) override {
    const int64_t end = m_time.now_us() + timeout_us;
    while (is_line_high() && m_time.now_us() < end)
      m_time.advance_to_us(std::clamp(receiver.next_byte_us(), m_time.now_us() + 1, end));
    return !is_line_high();
  }

  ScenarioTime& m_time;
};

sim::ReceiverOptions onSpi(bool tx_ready = true, int rate_hz = 1) {
  sim::ReceiverOptions options;
  options.spi = true;
  if (!tx_ready) options.tx_ready = 0;
  options.rate_hz = rate_hz;
  return options;
}

/// A world whose receiver is on SPI; `wire` lives as long as it.
struct SpiWorld {
  explicit SpiWorld(const sim::ReceiverOptions& options)
      : world(
            [&](World& made) {
              auto device = std::make_unique<SpiReceiver>(made.time, options);
              wire = device.get();
              auto input = std::make_unique<gpspub::SPI>(std::move(device));
              input->setGnssDeviceName(std::string(gpspub::SPI::DEVICE));
              return input;
            },
            {.hwversion = "n2", .device = std::string(gpspub::SPI::DEVICE)}) {}

  void at(double seconds, const std::function<void()>& action) {
    world.time.at(static_cast<int64_t>(seconds * S), action);
  }
  SpiReceiver* wire = nullptr;
  World world;
};

/// The longest time without an epoch between two times, seconds.
double longestGap(const std::vector<Published>& published, double from_s, double to_s) {
  double last = from_s, longest = 0;
  for (const auto& [at_us, data] : published) {
    const double at_s = static_cast<double>(at_us) / S;
    if (data.nmea_size() < 4 || at_s < from_s || at_s > to_s) continue;
    longest = std::max(longest, at_s - last);
    last = at_s;
  }
  return std::max(longest, to_s - last);
}

/// The contents of the fixes of the 11th to the 20th second; when they left is polling's or the line's
/// affair.
std::vector<std::string> contents(const std::vector<Published>& published) {
  std::vector<std::string> all;
  for (const auto& [at_us, data] : published) {
    const int64_t second = static_cast<int64_t>(data.utc_time_us() / S) % 60;
    if (second <= 10 || second > 20) continue;
    pb::GnssData values = data;
    values.clear_timestamp_ns();
    all.push_back(values.SerializeAsString());
  }
  return all;
}

TEST(Spi, TheSameFixesWithAndWithoutTheLine) {
  for (const int rate_hz : {1, 4}) {
    std::vector<std::string> with_line;
    for (const bool tx_ready : {true, false}) {
      SpiWorld spi(onSpi(tx_ready, rate_hz));
      const auto published = spi.world.run(23);
      EXPECT_EQ(spi.wire->line_waits_us.empty(), !tx_ready);
      EXPECT_EQ(contents(published).size(), 10U * static_cast<unsigned>(rate_hz));
      if (tx_ready) with_line = contents(published);
      EXPECT_EQ(contents(published), with_line);
    }
  }
}

TEST(Spi, TheSequenceRunsToItsEnd) {
  for (const bool tx_ready : {true, false}) {
    auto options = onSpi(tx_ready);
    options.power_up_defaults = true;  // no GST
    options.antenna_supply = false;
    SpiWorld spi(options);
    bool initialised = false;
    spi.at(10.03, [&] { spi.wire->transfer_error = EIO; });  // so short that nothing is opened again
    spi.at(10.2, [&] { spi.wire->transfer_error = 0; });
    spi.at(449, [&] { initialised = spi.world.service->ubloxConfig().isInitialised(); });
    const auto published = spi.world.run(450);
    EXPECT_TRUE(initialised);
    ASSERT_FALSE(published.empty());
    EXPECT_EQ(published.back().data.status(), 3);
    EXPECT_TRUE(published.back().data.has_accuracy());
    EXPECT_EQ(spi.wire->opens_ns.size(), 1U);
  }
}

struct Fault {
  const char* what;
  void (*begin)(SpiReceiver&);
  void (*end)(SpiReceiver&);
  double begin_s;
  double longest_gap_s;  ///< while it lasts
  const char* told;      ///< once; nullptr: it is not
};

TEST(Spi, FaultsAreToldOnceAndEnd) {
  constexpr double BEGIN_S = 80, END_S = 110;  // long after the antenna was set
  constexpr double FOREVER = END_S - BEGIN_S;
  constexpr auto mend_line = [](SpiReceiver& wire) { wire.line_stuck.reset(); };
  constexpr auto mend_bus = [](SpiReceiver& wire) { wire.transfer_error = wire.open_error = 0; };
  const Fault faults[] = {
      {"no line", [](auto& wire) { wire.exported = wire.exportable = false; }, mend_line, 0, 1.2,
       "Error to open /sys/class/gpio/export. errno = 2"},
      {"line not settable", [](auto& wire) { wire.settable = false; },
       [](auto& wire) { wire.settable = true; }, 0, 1.2,
       "Error writing 'in' to /sys/class/gpio/gpio124/direction errno = 2"},
      {"stuck high", [](auto& wire) { wire.line_stuck = '1'; }, mend_line, BEGIN_S, 4,
       "lost: it announces nothing"},
      {"stuck low", [](auto& wire) { wire.line_stuck = '0'; }, mend_line, BEGIN_S, 1.2, nullptr},
      {"unreadable", [](auto& wire) { wire.line_stuck = '?'; }, mend_line, BEGIN_S, 1.2,
       "lost: it cannot be read"},
      {"device missing", [](auto& wire) { wire.open_error = wire.transfer_error = ENODEV; }, mend_bus,
       BEGIN_S, FOREVER, "read error from /dev/spidev2.0 errno = 19"},
      {"transfers fail", [](auto& wire) { wire.transfer_error = EIO; }, mend_bus, BEGIN_S, FOREVER,
       "read error from /dev/spidev2.0 errno = 5"}};
  for (const Fault& fault : faults) {
    SpiWorld spi(onSpi());
    LogCapture log;
    size_t transfers = 0;
    if (fault.begin_s == 0) fault.begin(*spi.wire);
    spi.at(fault.begin_s, [&] {
      fault.begin(*spi.wire);
      transfers = spi.wire->transfers.size();
    });
    spi.at(END_S, [&] {
      transfers = spi.wire->transfers.size() - transfers;
      fault.end(*spi.wire);
    });
    const auto published = spi.world.run(150);
    const std::string text = log.take();
    EXPECT_LE(longestGap(published, BEGIN_S, END_S), fault.longest_gap_s) << fault.what;
    EXPECT_LE(longestGap(published, END_S + 2, 149.9), 2) << fault.what;
    EXPECT_LE(transfers, 110 * (END_S - fault.begin_s)) << fault.what;
    if (fault.told != nullptr) {
      EXPECT_EQ(occurrences(text, fault.told), 1U) << fault.what << text;
    }
    EXPECT_LE(occurrences(text, " ERROR "), 4U) << text;
    EXPECT_LE(spi.wire->opens_ns.size(), END_S - BEGIN_S + 2) << fault.what;
  }
}

}  // namespace
