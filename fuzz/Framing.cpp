// Sends any bytes in any pieces through the receive buffer, from the serial port and from the SPI bus
// with its faults.

#include <algorithm>

#include "fuzz/FuzzTarget.h"
#include "input/SPI.h"
#include "input/SerialInput.h"
#include "support/FakeSpi.h"
#include "support/FakeTerminal.h"
#include "support/Frames.h"
#include "wire/NmeaLine.h"

namespace fuzz {

using namespace ecu::koru::gpspub;

namespace {

constexpr size_t OVER_LONG = 4096;
constexpr size_t UBX_OVERHEAD = 8;

/// Checks an item, given as the receiver sent it.
void check_item(ItemKind kind, std::string_view sent) {
  const auto* const bytes = reinterpret_cast<const unsigned char*>(sent.data());
  if (kind == ItemKind::UBX_FRAME) {
    require(sent.size() >= UBX_OVERHEAD, "a UBX item has a header");
    const std::string whole = test::ubx(bytes[2], bytes[3], sent.substr(6, sent.size() - UBX_OVERHEAD));
    require(sent == whole, "a UBX item has its length and its checksum");
    return;
  }
  require(bytes[0] == '$', "an item is a sentence or a UBX message");
  if (kind == ItemKind::OVER_LONG) {  // it is handed on as it is, and validation rejects it
    require(sent.size() > OVER_LONG, "an over-long item is long");
    return;
  }
  require(kind == ItemKind::NMEA_LINE, "an item has a kind");
  require(sent.ends_with("\r\n"), "a sentence ends with CR LF");
  require(
      std::all_of(sent.begin(), sent.end() - 1, [](char c) { return (c >= 0x20 && c <= 0x7E) || c == '\r'; }),
      "a sentence is text");
  const size_t star = sent.size() > 5 ? sent.size() - 5 : 0;
  const bool valid = star > 0 && sent == test::nmea(sent.substr(1, star - 1)) && sent.size() >= 8;
  require(valid == GnssUtils::isValidNmeaMessage(bytes, static_cast<unsigned>(sent.size())),
          "a sentence is valid exactly with its checksum");
}

/// Accounts for the bytes that an input took from its device.
template <typename Source>
struct Ledger {
  Source& input;
  size_t consumed = 0;

  /// Reads once. `taken` returns all bytes that the input has taken so far.
  template <typename Taken>
  void read(const Taken& taken) {
    const bool framed = input.read();
    const std::string_view all = taken();
    const auto held = static_cast<size_t>(input.getBytesWaiting());
    const auto discarded = static_cast<size_t>(input.bytesDiscarded());
    require(held <= ReceiveBuffer::INPUT_BUFFER_SIZE, "the buffer holds what fits");
    require(all.size() == consumed + discarded + held, "every byte is handed on, discarded or held");
    if (!framed) return;
    const auto length = static_cast<size_t>(input.getMessageLength());
    require(length > 0 && length <= held, "an item lies in the buffer");
    std::string item(reinterpret_cast<const char*>(input.getBuffer()), length);
    if (item.back() == '\0' && item[0] == '$') item.back() = '\n';
    require(item == all.substr(consumed + discarded, length), "an item is what was sent");
    check_item(input.getItemKind(), item);
    consumed += length;
  }
};

struct Port {
  test::FakeTerminal* line = new test::FakeTerminal;  // owned by the input
  SerialInput input{std::unique_ptr<ITerminalDevice>(line)};
  Ledger<SerialInput> ledger{input};
  std::string sent;

  void feed(std::string_view piece) {
    line->incoming += piece;
    sent += piece;
    // Each read takes a byte from the device, drops a byte or hands one on.
    for (size_t reads = 0; input.waiting(1000); ++reads) {
      require(reads <= 2 * sent.size() + 2, "reading ends");
      ledger.read([&] { return std::string_view(sent).substr(0, sent.size() - line->incoming.size()); });
    }
  }
};

/// A receiver on SPI that sends `says`, then 0xFF.
struct Wire final : test::FakeSpi {
  std::string says;
  std::string taken;  ///< bytes that the input keeps, not those that it only looks at or drops on purpose
  bool reading = false;
  unsigned until_failure = 0;  ///< this many more transfers work; if 0, all of them do

 private:
  static constexpr unsigned char IDLE = 0xFF;

  void exchange(std::span<const uint8_t> from_host, std::span<uint8_t> to_host) override {
    virtual_time().advance(static_cast<int64_t>(to_host.size()) * 8'000);
    if (until_failure > 0 && --until_failure == 0) transfer_error = EIO;
    const size_t count = std::min(says.size(), to_host.size());
    std::fill(std::copy_n(says.begin(), count, to_host.begin()), to_host.end(), IDLE);
    says.erase(0, count);
    const auto idle = [](std::span<const uint8_t> bytes) {
      return std::all_of(bytes.begin(), bytes.end(), [](uint8_t byte) { return byte == IDLE; });
    };
    if (idle(from_host) && (reading || !idle(to_host))) taken.append(to_host.begin(), to_host.end());
  }
  bool is_line_high() override { return says.empty(); }
  bool waitForEdge(int timeout_us, ecu::koru::WakeUp* /*wake*/) override {
    virtual_time().advance(int64_t{timeout_us} * 1000);
    return false;
  }
};

struct SpiBus {
  static constexpr int WAIT_US = 100'000;
  static constexpr int64_t MAX_PASS_NS = 800'000'000;  // a wait, and the reads before a message is sent

  Wire* wire = new Wire;  // owned by the input
  SPI input{std::unique_ptr<IDeviceFiles>(wire)};
  Ledger<SPI> ledger{input};

  SpiBus() { input.setGnssDeviceName(std::string(SPI::DEVICE)); }

  /// Makes one pass, and sends a message after each item if `answers`. Returns false if nothing was waiting.
  bool pass(bool answers) {
    const int64_t begin_ns = virtual_time().steady_ns();
    const bool waiting = input.waiting(WAIT_US);
    if (waiting) {
      wire->reading = true;
      ledger.read([&] {
        wire->reading = false;
        return std::string_view(wire->taken);
      });
      const std::string poll = test::ubx(0x06, 0x00, "");
      if (answers && input.getMessageLength() > 0)
        static_cast<void>(input.sendBinary(reinterpret_cast<const unsigned char*>(poll.data()),
                                           static_cast<int>(poll.size())));
    }
    require(virtual_time().steady_ns() - begin_ns <= MAX_PASS_NS, "a pass is short");
    return waiting;
  }
  /// Reads until nothing is left. A line stuck at "ready" never shows that, so the passes are limited then.
  void pump(bool answers) {
    const size_t most = 2 * (wire->says.size() + ReceiveBuffer::INPUT_BUFFER_SIZE);
    for (size_t passes = 0; !input.isDeviceGone() && pass(answers); ++passes) {
      if (wire->line_stuck == '0' && wire->says.empty() && passes > 50) return;
      require(passes <= most, "reading ends");
    }
  }
  void connect() {
    const std::string before = wire->taken;
    require(input.connect(), "the device opens");
    wire->taken = before;  // the bytes that a receiver kept meanwhile are dropped
  }
};

}  // namespace

void framing(Bytes bytes) {
  Input input(bytes);
  Port port;
  port.line->counts = input.byte() % 4 != 0;
  size_t piece = input.byte();
  require(port.input.connect(), "the device opens");
  while (!input.empty()) {
    piece = piece * 5 % 255 + 1;
    port.feed(text(input.take(piece)));
  }
}

/// Input: an event on the bus, then a piece of bytes, again and again.
void spi(Bytes bytes) {
  Input input(bytes);
  SpiBus bus;
  bus.connect();
  while (!input.empty()) {
    const uint8_t event = input.byte();
    if (event % 8 == 1) bus.input.setTxReadyCheck(event >= 128);
    if (event % 8 == 2) bus.wire->line_stuck = "01x"[event / 8 % 3];
    if (event % 8 == 3) bus.wire->line_stuck.reset();
    if (event % 8 == 4) bus.wire->until_failure = 1 + event / 8 % 8;
    bus.wire->says += text(input.take(size_t{input.byte()} * (event >= 192 ? 16U : 1U)));
    bus.pump(event % 8 >= 5);
    if (event % 8 != 4 && event % 8 != 7) continue;
    bus.wire->transfer_error = 0;
    bus.wire->until_failure = 0;
    bus.input.disconnect();
    bus.connect();
  }
}

}  // namespace fuzz
