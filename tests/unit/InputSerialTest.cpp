#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

#include "input/SerialInput.h"
#include "support/FakeTerminal.h"
#include "support/Frames.h"
#include "support/LogCapture.h"
#include "support/VirtualClock.h"

using namespace ecu::koru;
using namespace ecu::koru::gpspub;
using namespace std::string_literals;

namespace {

using Items = std::vector<std::string>;

struct Port : test::VirtualClock {
  test::FakeTerminal* line = new test::FakeTerminal;  // owned by the input
  SerialInput input{std::unique_ptr<ITerminalDevice>(line)};
  size_t fed = 0;
  size_t consumed = 0;

  Port() {
    input.setGnssDeviceName("/dev/ttyFP3");
    EXPECT_TRUE(input.connect());
  }

  /// Returns the items framed until nothing more can be read, and restores the LF that framing overwrites.
  Items feed(std::string_view bytes) {
    Items items;
    line->incoming += bytes;
    fed += bytes.size();
    while (input.waiting(1000)) {
      EXPECT_LE(input.getBytesWaiting(), ReceiveBuffer::INPUT_BUFFER_SIZE);
      if (!input.read()) continue;
      const auto length = static_cast<size_t>(input.getMessageLength());
      std::string& item = items.emplace_back(reinterpret_cast<const char*>(input.getBuffer()), length);
      const bool is_line = input.getItemKind() == ItemKind::NMEA_LINE;
      EXPECT_EQ(input.getItemKind() == ItemKind::UBX_FRAME, item[0] == '\xB5');
      EXPECT_EQ(is_line, item.ends_with("\r\0"s));
      if (is_line) item.back() = '\n';
      consumed += length;
    }
    EXPECT_FALSE(input.read());  // removes the last item
    EXPECT_EQ(consumed + static_cast<size_t>(input.bytesDiscarded() + input.getBytesWaiting()), fed);
    return items;
  }
  Items feedInPieces(std::string_view bytes, size_t first, size_t each) {
    Items items = feed(bytes.substr(0, first));
    for (size_t at = first; at < bytes.size(); at += each)
      std::ranges::move(feed(bytes.substr(at, each)), std::back_inserter(items));
    return items;
  }
};

const std::string RMC = test::nmea("GPRMC,123519,A,4807.038,N,01131.000,E,022.4,084.4,230394,003.1,W");
const std::string ACK = test::ubx(5, 1, "\x06\x01"s);
const int RMC_LEN = static_cast<int>(RMC.size());

}  // namespace

TEST(InputSerialTest, FramesWhatIsWholeAndDropsWhatIsCorrupt) {
  const std::string big = test::ubx(10, 4, std::string(4096, 'u'));
  const std::string endless = "$" + std::string(4096, 'n');
  const std::string stall = "\xB5";
  std::string backlog = "$GP\x07";
  for (int i = 0; i < 60; ++i) backlog += RMC;
  const struct {
    std::string bytes;
    Items items;
    int discarded, held;
  } rows[] = {
      {RMC + ACK + ACK + RMC, {RMC, ACK, ACK, RMC}, 0, 0},
      {"xyz" + RMC + "\r\n\x62" + ACK, {RMC, ACK}, 6, 0},
      {RMC + "xy", {RMC}, 2, 0},
      {RMC + "x", {RMC}, 0, 1},  // a single byte has to wait
      {"$GPGGA,1\n" + RMC, {RMC}, 9, 0},
      {"$GP\x80" + RMC, {RMC}, 4, 0},
      {"$GP\0GA"s + RMC, {RMC}, 6, 0},
      {"$GPGGA~ \r\n", {"$GPGGA~ \r\n"}, 0, 0},
      {"$GPGGA\x7F" + RMC, {RMC}, 7, 0},
      {"$A~ \r\n", {"$A~ \r\n"}, 0, 0},  // shorter than the eight bytes checked at once
      {"$\x7F\r\n", {}, 4, 0},
      {"$\x1F\r\n", {}, 4, 0},
      {"$" + ACK + RMC, {ACK, RMC}, 1, 0},                        // a torn line
      {"$GPRM" + RMC, {"$GPRM" + RMC}, 0, 0},                     // validation rejects it
      {ACK.substr(0, 9) + "\x39" + RMC, {RMC}, 10, 0},            // the checksum is wrong
      {"\xB5\x62\x05\x01\x04" + RMC, {RMC}, 5, 0},                // announces 9220 bytes
      {"\xB5\x62\x0A\x04\x01\x10__" + RMC, {RMC}, 8, 0},          // announces 4097 bytes, too many
      {"\xB5\x62\x0A\x04\x00\x10__"s + RMC, {}, 0, 8 + RMC_LEN},  // announces 4096 bytes, which may come
      {big + ACK, {big, ACK}, 0, 0},
      {endless.substr(0, 4096), {}, 0, 4096},
      {endless, {endless}, 0, 0},
      {backlog, Items(60, RMC), 4, 0},
      {stall + RMC, {}, 0, 1 + RMC_LEN},  // intended: a sync byte alone stops framing
      {stall + std::string(10238, 'x'), {}, 0, 10239},
      {stall + std::string(10239, 'x') + RMC, {RMC}, 10240, 0}};  // a full buffer is dumped
  for (const auto& row : rows) {
    Port port;
    SCOPED_TRACE(logging::escaped(row.bytes.substr(0, 80)));
    EXPECT_EQ(port.feed(row.bytes), row.items);
    EXPECT_EQ(port.input.bytesDiscarded(), row.discarded);
    EXPECT_EQ(port.input.getBytesWaiting(), row.held);
    EXPECT_EQ(port.input.getLinesReceived(), static_cast<int>(row.items.size()));
  }
}

// It must not matter how the system splits the stream into reads.
TEST(InputSerialTest, EverySplitFramesTheSame) {
  std::mt19937 random(2);
  const std::string good =
      "noise" + RMC + ACK + "$GPGGA,1\n" + RMC + test::ubx(1, 7, std::string(92, '$')) + RMC;
  for (int round = 0; round < 60; ++round) {
    std::string stream = good;
    for (int fault = 0; fault < round % 6; ++fault)
      stream[random() % good.size()] = static_cast<char>(random());
    const Items expected = Port().feed(stream);
    for (size_t split = 1; split < stream.size(); ++split)
      ASSERT_EQ(Port().feedInPieces(stream, split, good.size()), expected)
          << split << logging::escaped(stream);
    for (const size_t each : {1, 2, 7}) ASSERT_EQ(Port().feedInPieces(stream, 0, each), expected) << each;
  }
}

TEST(InputSerialTest, NoticesADeviceThatWentAway) {
  const struct {
    int wait_error, read_error;
    bool hung_up, gone;
  } rows[] = {{0, EINTR, false, false}, {0, EAGAIN, false, false}, {0, EIO, false, true},
              {0, 0, true, true},       {EINTR, 0, false, false},  {EBADF, 0, false, true}};
  for (const auto& row : rows) {
    Port port;
    port.line->wait_error = row.wait_error;
    port.line->read_error = row.read_error;
    port.line->hung_up = row.hung_up;
    SCOPED_TRACE(logging::text(row.wait_error, " ", row.read_error));
    const bool waiting = port.input.waiting(1000);
    EXPECT_EQ(waiting, row.wait_error == 0);
    if (waiting) {
      EXPECT_FALSE(port.input.read());
    }
    EXPECT_EQ(port.input.isDeviceGone(), row.gone);
    EXPECT_TRUE(port.input.connect());
    EXPECT_EQ(port.line->closes, 1);
    EXPECT_FALSE(port.input.isDeviceGone());
  }
}

TEST(InputSerialTest, OpensTheDeviceRawAtItsRate) {
  Port port;
  termios& attributes = port.line->attributes;
  attributes.c_lflag = ICANON | ECHO;
  // An unknown rate ends the hunt. A rate that is not part of the hunt reads back as 9600.
  const std::pair<unsigned, unsigned> rows[] = {{57600, 57600}, {14400, 57600}, {4800, 9600}};
  for (const auto& [baud, reads_back] : rows) {
    port.input.tryNextBaudRate();
    EXPECT_EQ(port.input.setBaudRate(baud), baud != 14400);
    EXPECT_EQ(port.input.getBaudRate(), reads_back);
  }
  EXPECT_TRUE(port.input.connect());
  EXPECT_EQ(port.line->path, "/dev/ttyFP3");
  EXPECT_EQ(cfgetispeed(&attributes), B4800);
  EXPECT_EQ(cfgetospeed(&attributes), B4800);
  EXPECT_EQ(attributes.c_lflag, 0U);
  EXPECT_EQ(attributes.c_cc[VTIME], 1);
  EXPECT_EQ(attributes.c_cc[VMIN], 80);
}

TEST(InputSerialTest, LogsFailuresSparinglyAndSendsWhatASignalInterrupted) {
  Port port;
  std::vector<int> logged;
  port.line->open_error = ENODEV;
  for (int i = 1; i <= 64; ++i) {
    test::LogCapture log("WARNING");
    EXPECT_FALSE(port.input.connect());
    if (!log.take().empty()) logged.push_back(i);
  }
  EXPECT_THAT(logged, testing::ElementsAre(1, 33));
  port.line->open_error = 0;
  test::LogCapture log("WARNING");
  port.line->attributes_error = ENOTTY;  // a file is read as it is
  for (int i = 0; i < 2; ++i) EXPECT_TRUE(port.input.connect());
  const auto* bytes = reinterpret_cast<const unsigned char*>(ACK.data());
  port.line->interrupted_writes = 2;
  EXPECT_EQ(port.input.sendBinary(bytes, 10), 10);
  EXPECT_EQ(port.line->written, ACK);
  port.line->write_error = EIO;
  EXPECT_LT(port.input.sendBinary(bytes, 10), 0);
  const std::string text = log.take();
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 2) << text;
}
