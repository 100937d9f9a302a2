// Any bytes in any pieces through the receive buffer of the serial port. A second input for another bus needs
// its fake device and the same checks.

#include <algorithm>
#include <numeric>

#include "fuzz/FuzzTarget.h"
#include "input/SerialInput.h"
#include "nmea/GnssUtils.h"
#include "support/FakeTerminal.h"
#include "support/Frames.h"

namespace fuzz {

using namespace ecu::koru::gpspub;

namespace {

constexpr size_t OVER_LONG = 4096;
constexpr size_t UBX_OVERHEAD = 8;

/// One item as the receiver sent it.
void check_item(std::string_view sent) {
  const auto* const bytes = reinterpret_cast<const unsigned char*>(sent.data());
  if (bytes[0] == 0xB5) {
    require(sent.size() >= UBX_OVERHEAD, "a UBX item has a header");
    const std::string whole = test::ubx(bytes[2], bytes[3], sent.substr(6, sent.size() - UBX_OVERHEAD));
    require(sent == whole, "a UBX item has its length and its checksum");
    return;
  }
  require(bytes[0] == '$', "an item is a sentence or a UBX message");
  if (sent.size() > OVER_LONG) return;  // handed on as it is, for validation to reject
  require(sent.ends_with("\r\n"), "a sentence ends with CR LF");
  require(
      std::all_of(sent.begin(), sent.end() - 1, [](char c) { return (c >= 0x20 && c <= 0x7E) || c == '\r'; }),
      "a sentence is text");
  const size_t star = sent.size() > 5 ? sent.size() - 5 : 0;
  const bool valid = star > 0 && sent == test::nmea(sent.substr(1, star - 1)) && sent.size() >= 8;
  require(valid == GnssUtils::isValidNmeaMessage(bytes, static_cast<unsigned>(sent.size())),
          "a sentence is valid exactly with its checksum");
}

/// The input, and what has become of the bytes that were fed to it.
struct Port {
  test::FakeTerminal* line = new test::FakeTerminal;  // owned by the input
  SerialInput input{std::unique_ptr<ITerminalDevice>(line)};
  std::string sent;
  size_t consumed = 0;

  void feed(std::string_view piece) {
    line->incoming += piece;
    sent += piece;
    // A read takes a byte from the device, drops one or hands one on.
    for (size_t reads = 0; input.waiting(1000); ++reads) {
      require(reads <= 2 * sent.size() + 2, "reading ends");
      read();
    }
  }
  void read() {
    const bool framed = input.read();
    const auto held = static_cast<size_t>(input.getBytesWaiting());
    const auto discarded = static_cast<size_t>(input.bytesDiscarded());
    const size_t read = sent.size() - line->incoming.size();
    require(held <= SerialInput::INPUT_BUFFER_SIZE, "the buffer holds what fits");
    require(read == consumed + discarded + held, "every byte is handed on, discarded or held");
    if (!framed) return;
    const auto length = static_cast<size_t>(input.getMessageLength());
    require(length > 0 && length <= held, "an item lies in the buffer");
    std::string item(reinterpret_cast<const char*>(input.getBuffer()), length);
    if (item.back() == '\0' && item[0] == '$') item.back() = '\n';
    require(item == std::string_view(sent).substr(consumed + discarded, length), "an item is what was sent");
    check_item(item);
    consumed += length;
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

}  // namespace fuzz
