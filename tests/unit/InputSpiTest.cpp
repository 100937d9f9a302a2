#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "input/SPI.h"
#include "support/FakeSpi.h"
#include "support/Frames.h"
#include "support/LogCapture.h"
#include "support/VirtualClock.h"

using namespace ecu::koru;
using namespace ecu::koru::gpspub;
using namespace std::string_literals;
using testing::ElementsAre;

namespace {

constexpr int64_t MS = 1'000'000;  // ns
const std::string RMC = test::nmea("GPRMC,123519,A,4807.038,N,01131.000,E,022.4,084.4,230394,003.1,W");

/// A receiver that sends `says`. A wait that times out moves the clock.
struct ToldReceiver final : test::FakeSpi {
  std::string says;   ///< bytes that are not clocked out yet
  std::string heard;  ///< bytes other than 0xFF
  int64_t transfer_ns = 0;

 private:
  void exchange(std::span<const uint8_t> from_host, std::span<uint8_t> to_host) override {
    time_source().sleep_ns(transfer_ns);
    for (const uint8_t byte : from_host) {
      if (byte != 0xFF) heard.push_back(static_cast<char>(byte));
    }
    const size_t count = std::min(says.size(), to_host.size());
    std::fill(std::copy_n(says.begin(), count, to_host.begin()), to_host.end(), 0xFF);
    says.erase(0, count);
  }
  bool is_line_high() override { return says.empty(); }
};

struct Bus : test::VirtualClock {
  ToldReceiver* wire = new ToldReceiver;  // owned by the input
  SPI input{std::unique_ptr<IDeviceFiles>(wire)};

  Bus() { input.setGnssDeviceName(std::string(SPI::DEVICE)); }
  Bus& connected(bool control = false) {
    EXPECT_TRUE(input.connect());
    input.setTxReadyCheck(control);
    return *this;
  }
  int send(const std::string& bytes) {
    return input.sendBinary(reinterpret_cast<const unsigned char*>(bytes.data()),
                            static_cast<int>(bytes.size()));
  }
  /// Returns all items that can be framed now, and restores the LF that framing overwrites.
  std::vector<std::string> items() {
    std::vector<std::string> all;
    while (input.waiting(20'000)) {
      if (!input.read()) continue;
      all.emplace_back(reinterpret_cast<const char*>(input.getBuffer()),
                       static_cast<size_t>(input.getMessageLength()));
      if (all.back().back() == '\0') all.back().back() = '\n';
    }
    return all;
  }
};

TEST(InputSpiTest, WaitsForTheLineInOnePieceAndPollsInSlices) {
  for (const bool control : {false, true}) {
    Bus bus;
    bus.connected(control);
    EXPECT_FALSE(bus.input.waiting(250'000));
    EXPECT_EQ(bus.wire->transfers, std::vector<uint32_t>(control ? 0 : 3, 8));
    EXPECT_EQ(bus.wire->line_waits_us, std::vector<int>(control ? 1 : 0, 250'000));
    bus.wire->line_waits_us.clear();
    bus.wire->says = RMC;
    EXPECT_TRUE(bus.input.waiting(100'000));
    EXPECT_TRUE(bus.wire->line_waits_us.empty());
  }
}

TEST(InputSpiTest, IdleBytesAreDataInsideAFrameAndDroppedBetweenItems) {
  const std::string idle(3, '\xFF');
  const std::string frame = test::ubx(6, 0x24, "\xFF\xFF\x04\x03"s + std::string(500, '\xFF') + "\x01");
  for (const bool control : {false, true}) {
    Bus bus;
    auto& says = bus.connected(control).wire->says;
    for (const auto& part : {idle, RMC, idle, frame, RMC, idle, frame}) says += part;
    EXPECT_THAT(bus.items(), ElementsAre(RMC, frame, RMC, frame));
  }
}

TEST(InputSpiTest, FullBufferIsDumpedBeforeATransfer) {
  Bus bus;
  bus.connected();
  // A sync byte alone stops framing, so all bytes are kept. The 400 free bytes are too few for a transfer.
  bus.wire->says = std::string(160, 'x') + "\xB5" + std::string(9839, 'x');
  for (int i = 0; i < 25; ++i) EXPECT_FALSE(bus.input.read());
  EXPECT_EQ(bus.input.getBytesWaiting(), 9840);
  bus.wire->says = RMC;
  EXPECT_TRUE(bus.input.read());
  EXPECT_EQ(bus.input.getBytesWaiting(), 400);
  EXPECT_EQ(bus.input.bytesDiscarded(), 10'000);
}

TEST(InputSpiTest, SetsTheLineUpAndLogsFailuresSparingly) {
  Bus bus;
  bus.wire->exported = false;
  bus.wire->settable_after_ns = 50 * MS;  // udev needs that long
  bus.connected();
  EXPECT_THAT(bus.wire->written,
              ElementsAre(test::FakeSpi::EXPORT + "=124", test::FakeSpi::LINE + "direction=in\0"s,
                          test::FakeSpi::LINE + "edge=falling\0"s));
  bus.connected();
  EXPECT_EQ(bus.wire->open_files(), 2U);  // the device and the line's value
  bus.wire->exported = bus.wire->exportable = false;
  bus.wire->open_error = ENODEV;
  std::vector<size_t> logged;
  for (int i = 0; i < 64; ++i) {
    test::LogCapture log("ERROR");
    EXPECT_FALSE(bus.input.connect());
    const std::string text = log.take();
    logged.push_back(static_cast<size_t>(std::count(text.begin(), text.end(), '\n')));
  }
  std::vector<size_t> expected(64);
  expected[0] = 1 + 4;  // the device, and four files of the line
  expected[32] = 1;
  EXPECT_EQ(logged, expected);
}

TEST(InputSpiTest, SendsAWholeMessageAndKeepsWhatCameBefore) {
  const std::string command = test::ubx(6, 0, "");
  Bus bus;
  bus.connected().wire->says = RMC;
  EXPECT_EQ(bus.send(command), 8);
  EXPECT_EQ(bus.wire->heard, command);
  EXPECT_EQ(bus.wire->transfers.back(), 8U);
  EXPECT_THAT(bus.items(), ElementsAre(RMC));
  EXPECT_EQ(bus.send(std::string(4097, 'x')), -1);
  EXPECT_EQ(errno, EMSGSIZE);
  bus.wire->transfer_error = EIO;
  EXPECT_EQ(bus.send(command), -1);
  EXPECT_EQ(bus.wire->heard, command);
  bus.wire->transfer_error = 0;
  EXPECT_EQ(bus.send(std::string(4096, 'x')), 4096);
}

TEST(InputSpiTest, CatchingUpHoldsNothingUp) {
  Bus bus;
  bus.wire->says = std::string(250'000, '\xB5');
  bus.input.clearBuffer();
  EXPECT_EQ(bus.connected().wire->transfers.size(), 40U);
  bus.input.disconnect();
  bus.wire->transfer_ns = 100 * MS;
  const int64_t begin_ns = bus.time.steady_ns();
  bus.input.clearBuffer();
  bus.connected();
  EXPECT_GT(bus.send("x"), 0);
  EXPECT_LE(bus.time.steady_ns() - begin_ns, 1'200 * MS);
  EXPECT_EQ(bus.wire->heard.back(), 'x');
}

}  // namespace
