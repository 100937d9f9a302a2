#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

#include "input/SerialInput.h"
#include "nmea/GnssUtils.h"
#include "support/FakeTerminal.h"
#include "support/Frames.h"
#include "support/LogCapture.h"

using namespace ecu::koru;
using namespace ecu::koru::gpspub;
using namespace std::string_literals;
using testing::HasSubstr;

namespace {

using Items = std::vector<std::string>;

/// An input on a fake terminal, read as the service reads it.
struct Port {
  VirtualTime time;
  test::FakeTerminal* line = new test::FakeTerminal;  // owned by the input
  SerialInput input{std::unique_ptr<ITerminalDevice>(line)};
  size_t fed = 0;
  size_t consumed = 0;

  Port() {
    set_time_source(&time);
    input.setGnssDeviceName("/dev/ttyFP3");
    EXPECT_TRUE(input.connect());
  }
  ~Port() { set_time_source(nullptr); }

  /// The items framed until nothing more can be read, with the LF that framing overwrites put back.
  Items feed(std::string_view bytes) {
    Items items;
    line->incoming += bytes;
    fed += bytes.size();
    while (input.waiting(1000)) {
      if (input.read()) items.push_back(item());
      EXPECT_TRUE(input.getBytesWaiting() >= 0 && input.getBytesWaiting() <= SerialInput::INPUT_BUFFER_SIZE);
    }
    EXPECT_FALSE(input.read());  // removes the last item
    EXPECT_EQ(consumed + static_cast<size_t>(input.bytesDiscarded() + input.getBytesWaiting()), fed);
    return items;
  }
  Items feedInPieces(std::string_view bytes, size_t first, size_t each) {
    Items items = feed(bytes.substr(0, first));
    for (size_t at = first; at < bytes.size(); at += each) {
      for (auto& item : feed(bytes.substr(at, each))) items.push_back(std::move(item));
    }
    return items;
  }

 private:
  std::string item() {
    std::string text(reinterpret_cast<const char*>(input.getBuffer()),
                     static_cast<size_t>(input.getMessageLength()));
    consumed += text.size();
    EXPECT_TRUE(!text.empty() && input.getMessageLength() <= input.getBytesWaiting());
    if (text[0] == '$' && text.back() == '\0') {
      text.back() = '\n';
    } else if (text[0] != '\xB5') {
      EXPECT_GT(text.size(), 4096U) << "neither a line nor a message nor over-long";
    }
    return text;
  }
};

const std::string RMC = test::nmea("GPRMC,123519,A,4807.038,N,01131.000,E,022.4,084.4,230394,003.1,W");
const std::string ACK = test::ubx(5, 1, "\x06\x01"s);
const int RMC_LEN = static_cast<int>(RMC.size());

}  // namespace

TEST(InputSerialTest, FramesWhatIsWholeAndDropsWhatIsCorrupt) {
  const std::string big = test::ubx(10, 4, std::string(4096, 'u'));
  const std::string endless = "$" + std::string(5000, 'n');
  std::string backlog = "$GP\x07";
  for (int i = 0; i < 60; ++i) backlog += RMC;
  const struct {
    std::string bytes;
    Items items;
    int discarded, held;
  } rows[] = {{RMC + ACK + ACK + RMC, {RMC, ACK, ACK, RMC}, 0, 0},
              {"xyz" + RMC + "\r\n\x62" + ACK, {RMC, ACK}, 6, 0},
              {RMC + "xy", {RMC}, 2, 0},
              {RMC + "x", {RMC}, 0, 1},  // a single byte waits
              {"$GPGGA,1\n" + RMC, {RMC}, 9, 0},
              {"$GP\x07GA,1\r\n" + RMC, {RMC}, 10, 0},
              {"$GP\x80" + RMC, {RMC}, 4, 0},
              {"$GP\0GA"s + RMC, {RMC}, 6, 0},
              {"$GPRM" + ACK + RMC, {ACK, RMC}, 5, 0},                    // torn
              {"$GPRM" + RMC, {"$GPRM" + RMC}, 0, 0},                     // for validation to reject
              {ACK.substr(0, 9) + "\x39" + RMC, {RMC}, 10, 0},            // wrong checksum
              {"\xB5\x62\x05\x01\x04" + RMC, {RMC}, 5, 0},                // 9220 bytes announced
              {"\xB5\x62\x0A\x04\x01\x10__" + RMC, {RMC}, 8, 0},          // 4097
              {"\xB5\x62\x0A\x04\x00\x10__"s + RMC, {}, 0, 8 + RMC_LEN},  // 4096: they may come
              {big + ACK, {big, ACK}, 0, 0},
              {endless.substr(0, 4096), {}, 0, 4096},
              {endless, {endless}, 0, 0},
              {backlog, Items(60, RMC), 4, 0},
              {"\xB5" + RMC, {}, 0, 1 + RMC_LEN}};  // stalls by design
  for (const auto& row : rows) {
    Port port;
    EXPECT_EQ(port.feed(row.bytes), row.items) << logging::escaped(row.bytes.substr(0, 80));
    EXPECT_EQ(port.input.bytesDiscarded(), row.discarded) << logging::escaped(row.bytes.substr(0, 80));
    EXPECT_EQ(port.input.getBytesWaiting(), row.held) << logging::escaped(row.bytes.substr(0, 80));
    EXPECT_EQ(port.input.getLinesReceived(), static_cast<int>(row.items.size()));
  }
  Port port;
  EXPECT_EQ(port.feed("\xB5" + std::string(10238, 'x')), Items{});
  EXPECT_EQ(port.feed("xy" + RMC), Items{RMC});  // a full buffer is dumped and reading goes on
}

// How the system cuts the stream into reads must not matter.
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
    EXPECT_FALSE(port.input.waiting(1000) && port.input.read());
    EXPECT_EQ(port.input.isDeviceGone(), row.gone) << row.wait_error << ' ' << row.read_error;
    EXPECT_TRUE(port.input.connect() && port.line->closes == 1 && !port.input.isDeviceGone());
  }
}

TEST(InputSerialTest, OpensTheDeviceRawAtItsRateAndSends) {
  Port port;
  EXPECT_TRUE(port.input.setBaudRate(57600));
  termios& attributes = port.line->attributes;
  attributes.c_lflag = ICANON | ECHO;
  test::LogCapture settings;
  GnssUtils::setLogFlags(logflag::CONNECTION);
  EXPECT_TRUE(port.input.connect());
  GnssUtils::setLogFlags(0);
  EXPECT_THAT(settings.take(), HasSubstr("cfgetispeed() 16 cfgetspeed() 16 baud rate 57600\n"));
  test::LogCapture log("WARNING");
  EXPECT_TRUE(port.input.connect() && port.input.isConnected() && port.line->path == "/dev/ttyFP3");
  EXPECT_TRUE(cfgetispeed(&attributes) == B57600 && cfgetospeed(&attributes) == B57600);
  EXPECT_TRUE(attributes.c_lflag == 0 && attributes.c_cc[VTIME] == 1 && attributes.c_cc[VMIN] == 80);
  port.line->attributes_error = ENOTTY;  // a file: read as it is, complained of once
  EXPECT_TRUE(port.input.connect() && port.input.connect());
  const auto* bytes = reinterpret_cast<const unsigned char*>(ACK.data());
  port.line->interrupted_writes = 2;
  EXPECT_TRUE(port.input.sendBinary(bytes, 10) == 10 && port.line->written == ACK);
  port.line->write_error = EIO;
  EXPECT_LT(port.input.sendBinary(bytes, 10), 0);
  const std::string text = log.take();
  EXPECT_THAT(text, HasSubstr("errno = 25"));
  EXPECT_THAT(text, HasSubstr("ERROR koru.gpspub: Error sendBinary m_fd_serial 7 errno = 5\n"));
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 2);
}
