#include "ublox/UbxReception.h"

#include <algorithm>
#include <string>
#include <utility>

#include "platform/base/Time.h"
#include "wire/HexDump.h"
#include "wire/ServiceLog.h"
#include "wire/UbxFrame.h"

namespace ecu::koru::gpspub {

namespace {

constexpr size_t DUMP_MAX = 50;
constexpr int DUMP_LINE = 10;

constexpr size_t NAV_TIMEUTC_MIN = 20;
constexpr size_t CFG_PRT_MIN = 20;
constexpr size_t CFG_NAV5_MIN = 36;
constexpr size_t CFG_GNSS_MIN = 8;
constexpr size_t MON_VER_MIN = 40;
constexpr size_t MON_VER_SW_LEN = 30;
constexpr size_t MON_VER_HW_LEN = 10;
constexpr size_t MON_VER_EXTENSION_LEN = 30;
constexpr size_t MON_GNSS_MIN = 8;

constexpr uint8_t PORT_SPI = 4;
constexpr uint16_t TX_READY_ENABLED = 0x0001;  // bit 0 of the txReady word
constexpr int GPIO_READINGS = 10;
constexpr int64_t NS_PER_MS = 1'000'000;

// The command for the new rate must be sent before the port is closed: 28 bytes of 10 bits.
constexpr uint32_t DRAIN_MS_BAUD = 280'000;
constexpr uint32_t DRAIN_UNKNOWN_MS = 30;
// Every real rate takes less time. A rate that a broken answer claims must not stop the service.
constexpr uint32_t DRAIN_MAX_MS = 100;

std::string dump(std::span<const uint8_t> bytes) {
  return "\n" +
         hexDumpMessage(bytes.data(), static_cast<int>(std::min(bytes.size(), DUMP_MAX)), DUMP_LINE, 0, true);
}

/// Returns the NUL-terminated text in a field of fixed length.
std::string textAt(std::span<const uint8_t> payload, size_t at, size_t length) {
  const auto field = payload.subspan(at, length);
  const auto end = std::find(field.begin(), field.end(), uint8_t{0});
  return {field.begin(), end};
}

constexpr unsigned DISPATCH = logflag::UBX_DISPATCH | logflag::UBX_DISPATCH_2;

void logUnknown(unsigned flags, const UbxFrame& frame) {
  LOG.detail(flags, "Ublox CLASS 0x", logging::hex(frame.cls(), 2), " Ublox ID 0x",
             logging::hex(frame.id(), 2));
}

/// Logs a warning if the payload is too short.
bool isLongEnough(const UbxFrame& frame, size_t min, const char* name) {
  const size_t length = frame.payload().size();
  if (length >= min) return true;
  LOG.warning("Ublox ", name, " bad payload (< ", min, "). len = ", length);
  return false;
}

}  // namespace

UbxReception::UbxReception(IGnssInput& input, UbloxConfig& config, AntennaSupervision& antenna,
                           IReceiverOwner& owner)
    : m_input(input), m_config(config), m_antenna(antenna), m_owner(owner) {}

int UbxReception::readUbloxMessage() {
  m_ublox_message = m_input.getBuffer();
  m_ublox_length = m_input.getItemKind() == ItemKind::UBX_FRAME ? m_input.getMessageLength() : -1;
  return m_ublox_length;
}

void UbxReception::processUbloxMessage() {
  const UbxFrame frame({m_ublox_message, static_cast<size_t>(m_ublox_length)});
  switch (frame.cls()) {
    case ubx::NAV:
      return processNav(frame);
    case ubx::ACK:
      return processAck(frame);
    case ubx::CFG:
      return processCfg(frame);
    case ubx::MON:
      return processMon(frame);
    default:
      logUnknown(DISPATCH, frame);
  }
}

void UbxReception::processNav(const UbxFrame& frame) {
  const auto payload = frame.payload();
  if (frame.id() != ubx::NAV_TIMEUTC || payload.size() < NAV_TIMEUTC_MIN) return;
  const uint8_t valid = ubx::u8(payload, 19);
  LOG.detail(DISPATCH, "NAV-TIMEUTC  valid flags 0x", logging::hex(valid), " sec ", ubx::u8(payload, 18),
             " year ", ubx::u16(payload, 12), " month ", ubx::u8(payload, 14), " day ", ubx::u8(payload, 15));
  m_timeutc_valid = valid;
  m_owner.setUtcValidFlags(valid);
}

/// Acknowledgements also have a log area of their own, so that they can be logged without the messages that
/// come every second.
void UbxReception::processAck(const UbxFrame& frame) {
  constexpr unsigned FLAGS = DISPATCH | logflag::ACKNOWLEDGEMENTS;
  if (frame.id() == ubx::ACK_ACK || frame.id() == ubx::ACK_NAK) {
    LOG.detail(
        FLAGS,
        frame.id() == ubx::ACK_ACK ? "Ublox ACK received on class 0x" : "Ublox NAK received  on class 0x",
        logging::hex(ubx::u8(frame.payload(), 0), 2), " id 0x", logging::hex(ubx::u8(frame.payload(), 1), 2),
        " init command idx = ", m_config.initCommandIdx());
  } else {
    logUnknown(FLAGS, frame);
  }
  m_config.handle_UBX_ACK_NAK_response(frame);
}

void UbxReception::processCfg(const UbxFrame& frame) {
  const auto payload = frame.payload();
  switch (frame.id()) {
    case ubx::CFG_ANT:
      LOG.detail(DISPATCH, "Ublox CFG-ANT Antenna Control", [&] { return dump(frame.bytes()); });
      m_antenna.process_CFG_ANT(frame);
      break;
    case ubx::CFG_GNSS:
      LOG.detail(DISPATCH, "Ublox CFG-GNSS  CLASS 0x06 ID 0x3E. Payload len ", payload.size(),
                 [&] { return dump(frame.bytes()); });
      process_CFG_GNSS(frame);
      break;
    case ubx::CFG_NAV5:
      LOG.detail(DISPATCH, "Ublox CFG-NAV5  CLASS 0x06 ID 0x24. Payload len ", payload.size());
      process_CFG_NAV5(frame);
      break;
    case ubx::CFG_PRT:
      LOG.detail(DISPATCH, "Ublox CFG-PRT  CLASS 0x06 ID 0x00. Payload len ", payload.size());
      process_CFG_PRT(frame);
      break;
    default:
      LOG.detail(DISPATCH, "Ublox CFG CLASS 0x06 ID 0x", logging::hex(frame.id(), 2), " Payload len ",
                 payload.size(), [&] { return dump(frame.bytes()); });
  }
}

void UbxReception::processMon(const UbxFrame& frame) {
  switch (frame.id()) {
    case ubx::MON_VER:
      process_MON_VER(frame);
      break;
    case ubx::MON_GNSS:
      process_MON_GNSS(frame);
      break;
    case ubx::MON_HW:
      m_antenna.process_MON_HW(frame);
      LOG.detail(logflag::FRAMING, "Ublox MON-HW", [&] { return dump(frame.bytes()); });
      break;
    default:
      LOG.detail(DISPATCH, "Ublox MON CLASS 0x0A  ID 0x", logging::hex(frame.id(), 2));
  }
}

void UbxReception::process_MON_VER(const UbxFrame& frame) {
  if (!isLongEnough(frame, MON_VER_MIN, "MON-VER")) return;
  const auto payload = frame.payload();
  std::string extensions;
  for (size_t at = MON_VER_MIN; at + MON_VER_EXTENSION_LEN <= payload.size(); at += MON_VER_EXTENSION_LEN) {
    extensions += ", " + textAt(payload, at, MON_VER_EXTENSION_LEN);
  }
  m_software_version = logging::escaped(textAt(payload, 0, MON_VER_SW_LEN));
  LOG.info("Ublox Gnss: swVersion ", m_software_version, ", hwVersion ",
           logging::escaped(textAt(payload, MON_VER_SW_LEN, MON_VER_HW_LEN)),
           logging::escaped(extensions, logging::MAX_OUTSIDE_TEXT - MON_VER_MIN));
  m_mon_ver_received = true;
}

void UbxReception::process_CFG_NAV5(const UbxFrame& frame) const {
  if (!isLongEnough(frame, CFG_NAV5_MIN, "CFG-NAV5")) return;
  LOG.detail(logflag::UBX_CONFIGURATION, "process_CFG-NAV5. payload len ", frame.payload().size(),
             " Payload ", [&] { return dump(frame.payload()); });
}

void UbxReception::process_CFG_PRT(const UbxFrame& frame) {
  const auto payload = frame.payload();
  if (payload.size() < CFG_PRT_MIN) {
    LOG.warning("Ublox CFG-PRT bad payload (< ", CFG_PRT_MIN, "). len = ", payload.size(),
                dump(frame.bytes()));
    return;
  }
  const uint8_t port = ubx::u8(payload, 0);
  const uint32_t rate = ubx::u32(payload, 8);
  LOG.detail(logflag::UBX_CONFIGURATION | logflag::CONNECTION, "process_CFG-PRT. payload len ",
             payload.size(), " portID ", port, " baud rate ", rate, " txReadyPinCfg 0x",
             logging::hex(ubx::u16(payload, 2), 4), [&] { return dump(frame.bytes()); });
  m_config.setPortFrame(frame.text());
  if (port == PORT_SPI) {
    m_input.setTxReadyCheck(checkSpiGpioConnection(frame));
    m_config.confirmPort();
  } else if (rate == UbloxConfig::effectiveBaudrate(m_baud_rate)) {
    m_config.confirmPort();
    LOG.detail(logflag::UBX_CONFIGURATION | logflag::CONNECTION,
               "Baud rate is configured correct. Baud rate ", rate);
  } else if (!m_config.isStopped()) {
    changeBaudRate(rate);
  }
}

void UbxReception::changeBaudRate(uint32_t reported) {
  const uint32_t effective = UbloxConfig::effectiveBaudrate(m_baud_rate);
  LOG.info("Change Baud rate from ", reported, " to ", m_baud_rate);
  m_config.configureBaudrate(effective);
  m_input.setBaudRate(effective);
  const uint32_t drain_ms =
      reported == 0 ? DRAIN_UNKNOWN_MS : std::min(DRAIN_MS_BAUD / reported + 1, DRAIN_MAX_MS);
  time_source().sleep_ns(int64_t{drain_ms} * NS_PER_MS);
  m_owner.disconnect(CloseReason::CHANGING_RATE);
  // Nothing else would ask for the rate again, and fixes would stay untrusted.
  if (m_config.isInitialised()) m_config.restart();
}

/// The line must have been seen idle at least once: one stuck low always says "ready".
bool UbxReception::checkSpiGpioConnection(const UbxFrame& frame) {
  int num_errors = 0;
  int gpio_values = 0;
  for (int i = 0; i < GPIO_READINGS; ++i) {
    if (i > 0) time_source().sleep_ns(NS_PER_MS);
    const int level = m_input.readGpioTxRdyPin();
    num_errors += level < 0 ? 1 : 0;
    gpio_values += level == 1 ? 1 : 0;
  }
  LOG.info("checkSpiGpioConnection(). num_errors ", num_errors, " gpio_values ", gpio_values);
  const bool enabled = (ubx::u16(frame.payload(), 2) & TX_READY_ENABLED) != 0;
  return enabled && num_errors == 0 && gpio_values > 0;
}

void UbxReception::process_CFG_GNSS(const UbxFrame& frame) {
  if (!isLongEnough(frame, CFG_GNSS_MIN, "CFG-GNSS")) return;
  CFG_GNSS record;
  if (!parse_CFG_GNSS(frame.text(), record)) record.clear();
  print_CFG_GNSS(record);
  m_config.setCfgGnss(std::move(record), frame.text());
  m_config.sendNextCommand();
}

void UbxReception::process_MON_GNSS(const UbxFrame& frame) {
  if (!isLongEnough(frame, MON_GNSS_MIN, "MON-GNSS")) return;
  const auto payload = frame.payload();
  const MON_GNSS record{payload[0], payload[1], payload[2], payload[3], payload[4]};
  LOG.detail(logflag::UBX_CONFIGURATION | logflag::CONSTELLATIONS, "version 0x",
             logging::hex(record.version, 2), ", supported 0x", logging::hex(record.supported, 2),
             ", defaultGnss 0x", logging::hex(record.defaultGnss, 2), ", enabled 0x",
             logging::hex(record.enabled, 2), ", num simultaneous = ", record.simultaneous,
             ", Bits 3,2,1,0 = Galileo,BeiDou,Glonass,GPS");
  m_config.setMonGnss(record);
  m_config.sendNextCommand();
}

}  // namespace ecu::koru::gpspub
