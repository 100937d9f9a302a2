// Every UBX handler with the command sequence and the antenna, in virtual time.

#include <array>

#include "core/BusRequests.h"
#include "fuzz/FuzzTarget.h"
#include "input/SerialInput.h"
#include "support/FakeTerminal.h"
#include "support/Frames.h"
#include "ublox/AntennaSupervision.h"
#include "ublox/UbloxConfig.h"
#include "ublox/UbxReception.h"

namespace fuzz {

using namespace ecu::koru;
using namespace ecu::koru::gpspub;

namespace {

constexpr int64_t MAX_PASS_NS = 700'000'000;  // a reset pulse takes 0.5 s, and a change of speed some more
constexpr size_t MAX_SENT_PER_PASS = 4;

struct Kind {
  uint8_t cls;
  uint8_t id;
};
constexpr std::array<Kind, 10> KINDS{{{ubx::NAV, ubx::NAV_TIMEUTC},
                                      {ubx::ACK, ubx::ACK_NAK},
                                      {ubx::ACK, ubx::ACK_ACK},
                                      {ubx::CFG, ubx::CFG_PRT},
                                      {ubx::CFG, ubx::CFG_ANT},
                                      {ubx::CFG, ubx::CFG_NAV5},
                                      {ubx::CFG, ubx::CFG_GNSS},
                                      {ubx::MON, ubx::MON_VER},
                                      {ubx::MON, ubx::MON_HW},
                                      {ubx::MON, ubx::MON_GNSS}}};

/// Receiver control on a terminal, without the run loop.
class Unit final : public IReceiverOwner {
 public:
  explicit Unit(unsigned baud) {
    requests.setHwVersion("QRX7_2_KW4");
    reception.setBaudRate(baud);
    static_cast<void>(m_input.setBaudRate(baud));
    config.setRawCmdPost({test::ubx(ubx::CFG, ubx::CFG_RATE, "\x01")});
  }
  void receive(const std::string& frame) {
    if (!m_input.isConnected()) require(m_input.connect(), "the device opens");
    m_line->incoming = frame;
    require(m_input.waiting(1000) && m_input.read(), "a whole frame is an item");
    require(reception.readUbloxMessage() == static_cast<int>(frame.size()), "the item is the frame");
    reception.processUbloxMessage();
  }
  /// Does what the run loop does between items.
  void supervise() {
    config.takeRestart();
    if (!config.isInitialised() && !config.isStopped()) config.checkTimeout(!requests.radioSilence());
    antenna.checkRadioSilence();
  }
  /// Checks that everything sent since the last call is whole frames, and not too many.
  void check_sent() {
    std::string_view sent = m_line->written;
    size_t count = 0;
    for (; !sent.empty(); ++count) {
      require(sent.size() >= ubx::OVERHEAD_LEN, "what is sent has a header");
      const auto byte = [&](size_t at) { return static_cast<uint8_t>(sent[at]); };
      const size_t length = byte(4) + 256U * byte(5);
      require(length + ubx::OVERHEAD_LEN <= sent.size(), "what is sent has its length");
      const auto whole = test::ubx(byte(2), byte(3), sent.substr(ubx::HEADER_LEN, length));
      require(sent.starts_with(whole), "what is sent has its checksum");
      sent.remove_prefix(whole.size());
    }
    require(count <= MAX_SENT_PER_PASS, "an event sends few frames");
    m_line->written.clear();
  }
  void check_state() const {
    require(config.initCommandIdx() < ubx::INIT_COMMANDS.size() || config.hasCommandToSend(),
            "the sequence stays within its commands");
    require(!(config.isInitialised() && config.hasCommandToSend()), "a sequence that is through is silent");
    require(config.receiverFlag() == (config.isPortConfirmed() || config.isStopped() ? 1 : 0),
            "a fix is trusted on a confirmed port");
  }

  void setUtcValidFlags(uint8_t /*flags*/) override {}
  void disconnect(CloseReason reason) override {
    m_input.disconnect();
    if (reason == CloseReason::CHANGING_RATE) config.unconfirmPort();
    if (reason == CloseReason::NEXT_RATE) m_input.clearBuffer();
  }

  BusRequests requests;
  std::shared_ptr<com::MemoryTransport> bus = std::make_shared<com::MemoryTransport>();

 private:
  test::FakeTerminal* m_line = new test::FakeTerminal;  // owned by the input
  SerialInput m_input{std::unique_ptr<ITerminalDevice>(m_line)};

 public:
  UbloxConfig config{m_input, ReceiverLines(ReceiverLines::USUAL_LINE, "/nowhere"), requests, *this};
  AntennaSupervision antenna{config, requests, *this, bus};
  UbxReception reception{m_input, config, antenna, *this};
};

/// Carries out an event of the receiver, the bus or the clock.
void happen(Unit& unit, uint8_t event, Input& input) {
  if (event < 200) {
    const size_t which = event % (KINDS.size() + 1);
    const Kind kind = which < KINDS.size() ? KINDS[which] : Kind{input.byte(), input.byte()};
    const size_t length = input.byte() * size_t{event >= 190 ? 16U : 1U};
    unit.receive(test::ubx(kind.cls, kind.id, text(input.take(length))));
    return;
  }
  const uint8_t value = input.byte();
  if (event < 230) {
    virtual_time().advance(int64_t{value} * 100'000'000);
  } else if (event < 236) {
    unit.requests.setRadioSilence(value % 2 == 1);
  } else if (event < 242) {
    unit.requests.setGnssSystemRequested(value);
  } else if (event < 246) {
    unit.requests.setGnssAntennaOn(value % 2 == 1);
  } else if (event < 250) {
    unit.antenna.setRadioSilenceConfigured(value % 2 == 1);
  } else {
    unit.requests.restartSequence();
  }
}

}  // namespace

/// Input: the configured speed, then events.
void ubx(Bytes bytes) {
  static constexpr std::array<unsigned, 6> SPEEDS{4800, 9600, 19200, 38400, 57600, 115200};
  Input input(bytes);
  Unit unit(SPEEDS[input.byte() % SPEEDS.size()]);
  while (!input.empty()) {
    const uint8_t event = input.byte();
    const bool waits = event >= 200 && event < 230;
    const int64_t before = virtual_time().steady_ns();
    happen(unit, event, input);
    unit.supervise();
    require(waits || virtual_time().steady_ns() - before <= MAX_PASS_NS, "a pass of the loop is short");
    unit.check_sent();
    unit.check_state();
  }
  check_published(*unit.bus);
}

}  // namespace fuzz
