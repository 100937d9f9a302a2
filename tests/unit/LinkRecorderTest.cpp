#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "input/RecordedDevices.h"
#include "input/SPI.h"
#include "input/SerialInput.h"
#include "sim/gnss/LinkRecording.h"
#include "support/FakeSpi.h"
#include "support/FakeTerminal.h"
#include "support/Frames.h"
#include "support/LogCapture.h"
#include "support/Support.h"
#include "support/VirtualClock.h"
#include "wire/Stopwatch.h"

using namespace ecu::koru;
using namespace ecu::koru::gpspub;
using namespace std::string_literals;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

constexpr int64_t MS = 1'000'000;  // ns
constexpr uint64_t MIB = 1U << 20U;
const std::string RMC = test::nmea("GPRMC,123519,A,4807.038,N,01131.000,E,022.4,084.4,230394,003.1,W");
const std::string POLL = test::ubx(0x06, 0x00);

/// Returns a recording in lines, read by the simulator's own reader.
std::vector<std::string> lines_of(const std::string& path) {
  using Kind = sim::LinkRecording::Kind;
  const auto recording = sim::load_link_recording(path);
  std::vector<std::string> lines;
  for (const auto& event : recording.events) {
    const std::string text(recording.bytes_of(event)), rate = " " + std::to_string(event.baud);
    switch (event.kind) {
      case Kind::opened:
        lines.push_back("open" + rate);
        break;
      case Kind::rate:
        lines.push_back("baud" + rate);
        break;
      case Kind::closed:
        lines.emplace_back("close");
        break;
      case Kind::from_host:
        lines.push_back("> " + text);
        break;
      case Kind::from_receiver:
        lines.push_back("< " + text);
        break;
    }
  }
  return lines;
}

void send(IGnssInput& input, const std::string& bytes) {
  input.sendBinary(reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<int>(bytes.size()));
}

/// A serial port that is recorded.
struct Port : test::VirtualClock {
  explicit Port(const std::string& path, uint64_t max_bytes = MIB)
      : VirtualClock(1'000 * MS, 1'700'000'000'123'456),
        input(recorded(std::unique_ptr<ITerminalDevice>(line),
                       std::make_shared<LinkRecorder>(LinkRecorder::Options{path, max_bytes}))) {
    GnssUtils::initDuration();
    time.advance(500 * MS);  // from the start of the service
  }

  bool connected(unsigned baud) { return input.setBaudRate(baud) && input.connect(); }
  void receive(const std::string& bytes) {
    line->incoming += bytes;
    while (input.waiting(1)) static_cast<void>(input.read());
  }

  test::FakeTerminal* line = new test::FakeTerminal;  // owned by the input
  SerialInput input;
};

/// A receiver on SPI that says what it is told.
struct Bus final : test::FakeSpi {
  std::string says;

 private:
  void exchange(std::span<const uint8_t> /*from_host*/, std::span<uint8_t> to_host) override {
    const size_t count = std::min(says.size(), to_host.size());
    std::fill(std::copy_n(says.begin(), count, to_host.begin()), to_host.end(), 0xFF);
    says.erase(0, count);
  }
  bool is_line_high() override { return says.empty(); }
};

TEST(LinkRecorderTest, TheFileIsAsOtherProgramsReadIt) {
  const test::TempDir folder;
  const auto path = folder / "link.pcap";
  {
    Port port(path);
    ASSERT_TRUE(port.connected(38400));
    port.time.advance(1'234'567'891);
    send(port.input, POLL);
  }
  // The file's header, then each time (s, ns), both lengths and the event: steady time (s, us), kind,
  // payload.
  EXPECT_EQ(test::text_of(path),
            test::bytes("4D3CB2A1 0200 0400 00000000 00000000 FFFF0000 FA000000"
                        "00F15365 002F2925 16000000 16000000 00000000 0007A120 00 00 0000") +
                "open 38400" +
                test::bytes("01F15365 D3672433 14000000 14000000 00000001 000B3567 01 00 0000") + POLL +
                test::bytes("01F15365 D3672433 11000000 11000000 00000001 000B3567 00 00 0000") + "close");
  struct stat status {};
  ASSERT_EQ(stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0600U);
}

TEST(LinkRecorderTest, EachPieceRateAndClosingIsRecorded) {
  const test::TempDir folder;
  const auto path = folder / "link.pcap";
  {
    Port port(path);
    port.line->open_error = EACCES;
    EXPECT_FALSE(port.connected(9600));
    port.line->open_error = 0;
    ASSERT_TRUE(port.connected(9600));
    port.line->write_error = EIO;
    send(port.input, POLL);  // fails, so that nothing is sent
    port.line->write_error = 0;
    port.receive(RMC);
    ASSERT_TRUE(port.connected(38400));
    send(port.input, POLL);
    port.line->attributes_error = ENOTTY;
    ASSERT_TRUE(port.connected(38400));
  }
  EXPECT_THAT(lines_of(path), ElementsAre("open 9600", "< " + RMC, "close", "open 38400", "> " + POLL,
                                          "close", "open 0", "close"));
}

TEST(LinkRecorderTest, OnSpiFillBytesAreNotRecorded) {
  const test::TempDir folder;
  const auto path = folder / "link.pcap";
  const test::VirtualClock clock;
  {
    auto* const bus = new Bus;  // owned by the input
    SPI input(recorded(std::unique_ptr<IDeviceFiles>(bus),
                       std::make_shared<LinkRecorder>(LinkRecorder::Options{path, MIB})));
    input.setGnssDeviceName(std::string(SPI::DEVICE));
    ASSERT_TRUE(input.connect());
    EXPECT_FALSE(input.waiting(300'000));
    bus->says = RMC;
    while (input.waiting(20'000)) static_cast<void>(input.read());
    bus->says = "lost";  // comes in with the message, where the service does not look
    bus->says.insert(0, 400, '\xFF');
    send(input, POLL);
  }
  EXPECT_THAT(lines_of(path), ElementsAre("open 0", "< " + RMC.substr(0, 8),
                                          "< " + RMC.substr(8) + std::string(408 - RMC.size(), '\xFF'),
                                          "> " + POLL, "close"));
}

TEST(LinkRecorderTest, AFullFileBecomesTheOlderOneAndTheNextIsReadableByItself) {
  const test::TempDir folder;
  const auto path = folder / "link.pcap", older = path + ".1";
  constexpr uint64_t LIMIT = 400;
  {
    Port port(path, LIMIT);
    ASSERT_TRUE(port.connected(57600));
    for (int i = 0; i < 10; ++i) port.receive(RMC);
  }
  // 24 bytes of header, 38 of the first event, 28 and 70 of each piece
  EXPECT_THAT(lines_of(older), ElementsAre("baud 57600", "< " + RMC, "< " + RMC, "< " + RMC));
  EXPECT_THAT(lines_of(path), ElementsAre("baud 57600", "< " + RMC, "close"));
  EXPECT_LE(std::filesystem::file_size(older), LIMIT);
  { ASSERT_TRUE(Port(path, LIMIT).connected(9600)); }
  EXPECT_THAT(lines_of(older), ElementsAre("baud 57600", "< " + RMC, "close")) << "the last run's";
  EXPECT_THAT(lines_of(path), ElementsAre("open 9600", "close"));
}

TEST(LinkRecorderTest, BytesReachTheFileFiveSecondsLater) {
  const test::TempDir folder;
  const auto path = folder / "link.pcap";
  Port port(path);
  ASSERT_TRUE(port.connected(9600));
  port.receive(RMC);
  EXPECT_EQ(test::text_of(path), "") << "each piece costs a system call";
  port.time.advance(5'000 * MS);
  port.receive(RMC);
  EXPECT_THAT(lines_of(path), ElementsAre("open 9600", "< " + RMC, "< " + RMC));
}

TEST(LinkRecorderTest, AFailureCostsTheRecordingAndNothingElse) {
  const test::TempDir folder;
  const auto foreign = folder.write("notes", "not a recording");
  const auto capture = folder.write(  // of Ethernet
      "capture", test::bytes("4D3CB2A1 0200 0400 00000000 00000000 FFFF0000 01000000"));
  folder.write("link.pcap.1", "not a recording");
  const auto linked = folder / "linked";
  ASSERT_EQ(symlink(foreign.c_str(), linked.c_str()), 0);
  const struct {
    std::string path, reason;
  } rows[] = {{folder / "no/such/folder", "No such file or directory"},
              {folder.path(), "it is not a regular file"},
              {foreign, "it exists and is not a recording"},
              {capture, "it exists and is not a recording"},
              {folder / "link.pcap", folder / "link.pcap.1" + " exists and is not a recording"},
              {linked, "it is not a regular file"},
              {"/dev/full", "No space left on device"}};
  for (const auto& row : rows) {
    test::LogCapture log("INFO");
    {
      Port port(row.path);
      port.line->attributes_error = ENOTTY;
      ASSERT_TRUE(port.connected(9600));
      for (int i = 0; i < 3; ++i) {
        port.receive(RMC);
        port.time.advance(5'000 * MS);
        send(port.input, POLL);
      }
      EXPECT_EQ(port.input.getLinesReceived(), 3);
      EXPECT_EQ(test::occurrences(port.line->written, POLL), 3);
    }
    const std::string records = log.take(), warning = "the receiver's link is not recorded in ";
    EXPECT_THAT(records, HasSubstr(warning + row.path + ": " + row.reason + ";"));
    EXPECT_EQ(test::occurrences(records, warning), 1) << records;
    EXPECT_THAT(records, HasSubstr("errno = 25"));  // ENOTTY, although recording failed in between
  }
  EXPECT_EQ(test::text_of(foreign), "not a recording");
}

TEST(LinkRecorderTest, WithoutARecorderTheDeviceStaysTheSame) {
  auto terminal = std::make_unique<test::FakeTerminal>();
  auto bus = std::make_unique<Bus>();
  const ITerminalDevice* const terminal_before = terminal.get();
  const IDeviceFiles* const bus_before = bus.get();
  EXPECT_EQ(recorded(std::move(terminal), nullptr).get(), terminal_before);
  EXPECT_EQ(recorded(std::move(bus), nullptr).get(), bus_before);
}

}  // namespace
