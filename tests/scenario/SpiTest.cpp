// The receiver on the SPI bus: the whole service and the simulated receiver, joined by transfers and a line.

#include <gmock/gmock.h>

#include <algorithm>

#include "scenario/World.h"
#include "support/FakeSpi.h"
#include "support/LogCapture.h"

namespace {

using namespace ecu::koru;
using namespace test;

constexpr int64_t US_PER_BYTE = 8;  // 1 MHz

class SpiReceiver final : public FakeSpi {
 public:
  SpiReceiver(ScenarioTime& time, const sim::ReceiverOptions& options) : receiver(options), m_time(time) {}
  sim::Receiver receiver;
  int64_t stall_us = 0;  ///< how long the service gets no processor time, after half an epoch

 private:
  void exchange(std::span<const uint8_t> from_host, std::span<uint8_t> to_host) override {
    receiver.advance_to(m_time.now_us());
    receiver.transfer(from_host, to_host);
    m_time.advance_to_us(m_time.now_us() + US_PER_BYTE * static_cast<int64_t>(to_host.size()));
    m_blocks = to_host.size() > 8 && to_host[0] != 0xFF ? m_blocks + 1 : 0;
    if (m_blocks == 2) m_time.advance_to_us(m_time.now_us() + std::exchange(stall_us, 0));
  }
  bool is_line_high() override {
    receiver.advance_to(m_time.now_us());
    return receiver.tx_ready_level();
  }
  bool waitForEdge(int timeout_us, WakeUp* wake) override {
    const int64_t end = m_time.now_us() + timeout_us;
    while (is_line_high() && !wake->pending() && m_time.now_us() < end)
      m_time.step_towards_us(std::clamp(receiver.next_byte_us(), m_time.now_us() + 1, end));
    if (wake->pending()) wake->clear();
    return !is_line_high();
  }

  ScenarioTime& m_time;
  int m_blocks = 0;  // with data, one after the other
};

sim::ReceiverOptions onSpi() {
  sim::ReceiverOptions options;
  options.spi = true;
  return options;
}

/// A world whose receiver is on SPI. `wire` lives as long as the world.
struct SpiWorld {
  explicit SpiWorld(const sim::ReceiverOptions& options = onSpi())
      : world(
            [&](World& made) {
              auto device = std::make_unique<SpiReceiver>(made.time, options);
              wire = device.get();
              auto input = std::make_unique<gpspub::SPI>(std::move(device));
              input->setGnssDeviceName(std::string(gpspub::SPI::DEVICE));
              return input;
            },
            {.hwversion = "n2", .device = std::string(gpspub::SPI::DEVICE)}) {}
  SpiReceiver* wire = nullptr;
  World world;
};

/// Returns the longest time without an epoch between two times, seconds.
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

TEST(Spi, TheSequenceRunsToItsEndWithAndWithoutTheLine) {
  for (const bool tx_ready : {true, false}) {
    auto options = onSpi();
    if (!tx_ready) options.tx_ready = 0x009A;  // all but the bit that enables it
    options.power_up_defaults = true;          // it sends no GST
    options.antenna_supply = false;
    SpiWorld spi(options);
    LogCapture log("ERROR");
    for (const double s : {10.0, 12.0, 30.0}) {  // too short for the device to be opened again
      spi.world.at(s + 0.03, [&] { spi.wire->transfer_error = EIO; });
      spi.world.at(s + 0.2, [&] { spi.wire->transfer_error = 0; });
    }
    spi.world.at(449, [&] { EXPECT_TRUE(spi.world.service->ubloxConfig().isInitialised()); });
    const auto published = spi.world.run(450);
    EXPECT_EQ(occurrences(log.take(), "read error"), 2U);  // logged again after ten good seconds
    EXPECT_LE(longestGap(published, 300, 450), 1.2);
    EXPECT_EQ(published.back().data.status(), 3);
    EXPECT_TRUE(published.back().data.has_accuracy());
    EXPECT_EQ(spi.wire->opens_ns.size(), 1U);
    EXPECT_EQ(spi.wire->line_waits_us.empty(), !tx_ready);
  }
}

TEST(Spi, TheLineIsUsedOnceItWasSeenIdleAndEveryReadingWorked) {
  for (const std::string readings : {"0000000000", "0000000001", "1111?11111", "1111111111"}) {
    SpiWorld spi;
    spi.wire->readings = readings;
    spi.world.run(5);  // the first port poll is answered by then
    const bool works = readings.find('?') == std::string::npos && readings.find('1') != std::string::npos;
    EXPECT_EQ(spi.wire->line_waits_us.empty(), !works) << readings;
    EXPECT_TRUE(spi.wire->readings.empty());
  }
}

TEST(Spi, AnIdleReceiverWithTheLineIsLeftAlone) {
  SpiWorld spi;
  size_t waits = 0, transfers = 0;
  spi.world.injectAt(80, topic::BLACKOUT_MODE, std::string(1, '\1'));  // the antenna was set long before
  spi.world.at(90, [&] { waits = spi.wire->line_waits_us.size(), transfers = spi.wire->transfers.size(); });
  spi.world.run(190);
  EXPECT_LE(spi.wire->line_waits_us.size() - waits, 250U);  // a silent frame a second, a probe every two
  EXPECT_LE(spi.wire->transfers.size() - transfers, 150U);  // the probe, and commands without an answer
  EXPECT_GE(spi.wire->transfers.size() - transfers, 50U);
}

TEST(Spi, NoEpochIsCutShortForWantOfProcessorTime) {
  for (const int64_t stall_ms : {350, 450, 600}) {
    SpiWorld spi;
    spi.world.at(100.5, [&] { spi.wire->stall_us = stall_ms * MS; });
    const auto published = spi.world.run(105);
    EXPECT_THAT(cadence({published.end() - 5, published.end()}), testing::Not(testing::HasSubstr(":1/")))
        << stall_ms;
  }
}

TEST(Spi, FaultsAreToldOnceAndEnd) {
  constexpr double BEGIN_S = 80, END_S = 110;  // the antenna was set long before
  constexpr double FOREVER = END_S - BEGIN_S;
  const struct {
    void (*begin)(SpiReceiver&);
    double begin_s;
    double longest_gap_s;  ///< while the fault lasts
    const char* record;    ///< contains this text
    size_t times = 1;      ///< how often it is logged
  } faults[] = {
      {[](auto& wire) { wire.exported = wire.exportable = false; }, 0, 1.2, "gpio/export. errno = 2"},
      {[](auto& wire) { wire.settable = false; }, 0, 1.2, "gpio124/direction errno = 2"},
      {[](auto& wire) { wire.line_stuck = '1'; }, BEGIN_S, 4, "lost: it announces nothing"},
      {[](auto& wire) { wire.line_stuck = '0'; }, BEGIN_S, 1.2, "lost: ", 0},
      {[](auto& wire) { wire.line_stuck = '?'; }, BEGIN_S, 1.2, "lost: it cannot be read"},
      {[](auto& wire) { wire.open_error = wire.transfer_error = ENODEV; }, BEGIN_S, FOREVER, "read error"},
      {[](auto& wire) { wire.transfer_error = EIO; }, BEGIN_S, FOREVER, "read error"}};
  for (const auto& fault : faults) {
    SCOPED_TRACE(fault.record);
    SpiWorld spi;
    LogCapture log;
    if (fault.begin_s == 0) fault.begin(*spi.wire);
    spi.world.at(fault.begin_s, [&] {
      fault.begin(*spi.wire);
      spi.wire->transfers.clear();
    });
    spi.world.at(END_S, [&] {
      EXPECT_LE(spi.wire->transfers.size(), 110 * (END_S - fault.begin_s));
      spi.wire->line_stuck.reset();
      spi.wire->transfer_error = spi.wire->open_error = 0;
      spi.wire->settable = true;
    });
    const auto published = spi.world.run(150);
    const std::string text = log.take();
    EXPECT_LE(longestGap(published, BEGIN_S, END_S), fault.longest_gap_s);
    EXPECT_LE(longestGap(published, END_S + 2, 149.9), 2);
    EXPECT_EQ(occurrences(text, fault.record), fault.times) << text;
    EXPECT_LE(occurrences(text, " ERROR "), 4U) << text;
    EXPECT_LE(spi.wire->opens_ns.size(), END_S - BEGIN_S + 2);
  }
}

}  // namespace
