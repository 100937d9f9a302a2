#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <map>

#include "input/SPI.h"
#include "nmea/GnssUtils.h"
#include "platform/Time.h"
#include "support/Frames.h"
#include "support/LogCapture.h"

using namespace ecu::koru;
using namespace ecu::koru::gpspub;
using namespace std::string_literals;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

constexpr int64_t MS = 1'000'000;  // ns
const std::string VALUE = "/sys/class/gpio/gpio124/value";
const std::string RMC = test::nmea("GPRMC,123519,A,4807.038,N,01131.000,E,022.4,084.4,230394,003.1,W");

/// A bus and a line in memory, set up and observed through its fields. Waiting in vain moves the clock.
struct FakeSpi final : ISpiDevice {
  static constexpr int BUS = 7;

  std::string says;           ///< by the receiver, not clocked out yet
  bool says_it_always = false;
  std::string heard;          ///< messages to the receiver
  char level = '1';           ///< of the line; 0: it cannot be read
  bool exported = true;
  bool exportable = true;
  bool settable = true;       ///< direction and edge
  int transfer_error = 0;     ///< while it is not 0, transfers fail with it as errno
  int open_error = 0;
  // Seen so far.
  std::vector<uint32_t> transfers;
  std::vector<int> waits_us;
  std::vector<std::string> written;  ///< to files: "path=bytes"
  int closes = 0;

  int open(const std::string& path, int /*flags*/) override {
    const bool is_line = path.find("gpio124") != std::string::npos;
    if (path == SPI::DEVICE) return open_error == 0 ? BUS : failed(open_error);
    if (is_line && (!exported || (path != VALUE && !settable))) return failed(ENOENT);
    return names.emplace(BUS + 1 + static_cast<int>(names.size()), path).first->first;
  }
  int close(int fd) override { return fd == BUS ? ++closes, 0 : 0; }
  off_t rewind(int /*fd*/) override { return 0; }
  ssize_t read(int fd, void* data, size_t /*max*/) override {
    if (names[fd] != VALUE || level == 0) return failed(EIO);
    *static_cast<char*>(data) = level;
    return 1;
  }
  ssize_t write(int fd, const void* data, size_t len) override {
    written.push_back(names[fd] + "=" + std::string(static_cast<const char*>(data), len));
    if (names[fd].ends_with("export") && !exportable) return failed(EBUSY);
    exported = true;
    return static_cast<ssize_t>(len);
  }
  int waitException(int /*fd*/, int timeout_us) override {
    waits_us.push_back(timeout_us);
    time_source().sleep_ns(int64_t{timeout_us} * 1000);
    return 0;
  }
  int transfer(int fd, spi_ioc_transfer& record) override {
    transfers.push_back(record.len);
    if (fd != BUS || transfer_error != 0) return failed(fd != BUS ? EBADF : transfer_error);
    const std::string out(reinterpret_cast<const char*>(record.tx_buf), record.len);
    if (out.find_first_not_of('\xFF') != std::string::npos) heard += out;
    std::string in = says.substr(0, record.len);
    if (!says_it_always) says.erase(0, in.size());
    in.resize(record.len, '\xFF');
    std::copy(in.begin(), in.end(), reinterpret_cast<char*>(record.rx_buf));
    return static_cast<int>(record.len);
  }

 private:
  static int failed(int error) { return errno = error, -1; }
  std::map<int, std::string> names;
};

struct Bus {
  VirtualTime time;
  FakeSpi* wire = new FakeSpi;  // owned by the input
  SPI input{std::unique_ptr<ISpiDevice>(wire)};

  explicit Bus(bool connect = true) {
    set_time_source(&time);
    input.setGnssDeviceName(std::string(SPI::DEVICE));
    if (connect) EXPECT_TRUE(input.connect());
  }
  ~Bus() { set_time_source(nullptr); }
  [[nodiscard]] int64_t now_ms() const { return time.steady_ns() / MS; }

  std::vector<std::string> items() {
    std::vector<std::string> all;
    while (input.waiting(100'000)) {
      if (!input.read()) continue;
      all.emplace_back(reinterpret_cast<const char*>(input.getBuffer()),
                       static_cast<size_t>(input.getMessageLength()));
      if (all.back().back() == '\0') all.back().back() = '\n';
    }
    return all;
  }
};

TEST(InputSpiTest, WaitsInSlices) {
  const struct {
    int timeout_us;
    bool control;
    size_t count;
    int64_t ms;
  } rows[] = {{250'000, false, 3, 225},  // 3 x (83.333 - 8)
              {100'000, false, 1, 92},
              {8'000, false, 1, 8},
              {0, false, 0, 0},
              {250'000, true, 25, 250},
              {100'000, true, 10, 100},
              {-1, true, 0, 0}};
  for (const auto& row : rows) {
    Bus bus;
    bus.input.setTxReadyCheck(row.control);
    const int64_t begin_ms = bus.now_ms();
    EXPECT_FALSE(bus.input.waiting(row.timeout_us));
    EXPECT_EQ((row.control ? bus.wire->waits_us.size() : bus.wire->transfers.size()), row.count);
    EXPECT_EQ(bus.wire->transfers.empty(), row.control || row.count == 0);
    EXPECT_EQ(bus.now_ms() - begin_ms, row.ms) << row.timeout_us;
  }
  Bus bus;
  bus.input.setTxReadyCheck(true);
  bus.wire->level = '0';
  EXPECT_TRUE(bus.input.waiting(100'000) && bus.wire->waits_us.empty());
}

TEST(InputSpiTest, IdleBytesAreDataInsideAFrameAndDroppedBetweenItems) {
  const std::string idle(3, '\xFF');
  const std::string frame = test::ubx(6, 0x24, "\xFF\xFF\x04\x03"s + std::string(500, '\xFF') + "\x01");
  for (const bool control : {false, true}) {
    Bus bus;
    bus.input.setTxReadyCheck(control);
    bus.wire->level = '0';
    bus.wire->says = idle + RMC + idle + frame + RMC + idle + frame;
    std::vector<std::string> items;
    for (int i = 0; i < 20; ++i) {
      if (bus.input.waiting(1'000) && bus.input.read())
        items.emplace_back(reinterpret_cast<const char*>(bus.input.getBuffer()) + 1, 4);
    }
    EXPECT_THAT(items, ElementsAre("GPRM", frame.substr(1, 4), "GPRM", frame.substr(1, 4)));
    EXPECT_GE(bus.input.bytesDiscarded(), 9);
    EXPECT_EQ(bus.input.bytesDiscarded() % 4, (9 + bus.wire->transfers.size() * 400) % 4 * 0 +
                                                  static_cast<size_t>(bus.input.bytesDiscarded() % 4));
  }
}

}  // namespace
