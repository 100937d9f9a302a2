#include "ublox/UbloxConfig.h"

#include <array>
#include <utility>

#include "platform/base/Time.h"
#include "wire/HexDump.h"
#include "wire/ServiceLog.h"
#include "wire/Stopwatch.h"
#include "wire/UbxFrame.h"

namespace ecu::koru::gpspub {

namespace {

using Action = CommandSequence::Action;

static_assert(CommandSequence::INIT_COMMANDS == ubx::INIT_COMMANDS.size());
constexpr int64_t ANSWER_US = 3'000'000;

// The complex steps.
constexpr unsigned STEP_SELECT_SYSTEMS = 0;
constexpr unsigned STEP_GNSS_POLL = 2;
constexpr unsigned STEP_SAVE = 3;
constexpr unsigned STEP_FIRST_RAW = 4;
constexpr unsigned STEP_LAST_RAW = 8;
constexpr unsigned STEP_NAVIGATION_RATE = 9;

constexpr std::array<std::string_view, STEP_LAST_RAW - STEP_FIRST_RAW + 1> RAW_NAMES{
    "raw command 1", "raw command 2", "raw command 3", "raw command 4", "raw command 5"};

constexpr uint32_t GPS = 0x01;
constexpr uint32_t SBAS_AND_QZSS = 0x03;
constexpr size_t MEASUREMENT_PERIOD_OFFSET = 6;  // in the CFG-RATE frame

}  // namespace

UbloxConfig::UbloxConfig(IGnssInput& input, ReceiverLines lines, IReceiverRequests& requests,
                         IReceiverOwner& owner)
    : m_input(input),
      m_lines(std::move(lines)),
      m_requests(requests),
      m_owner(owner),
      m_navigation_rate(ubx::NAVIGATION_RATE.frame()),
      m_command(ubx::INIT_COMMANDS[0]) {}

// -- Configured settings

void UbloxConfig::setGnssAugmentationRequested(uint32_t mask) {
  m_gnss_augmentation_requested = mask;
  m_gnss_augmentation_configured = true;
}

uint32_t UbloxConfig::gnssAugmentationRequested() const {
  if (m_gnss_augmentation_configured) return m_gnss_augmentation_requested;
  return (m_requests.gnssSystemRequested() & GPS) != 0 ? SBAS_AND_QZSS : 0;
}

void UbloxConfig::setMeasurementPeriod(uint16_t period_ms) {
  m_navigation_rate[MEASUREMENT_PERIOD_OFFSET] = static_cast<char>(period_ms & 0xFF);
  m_navigation_rate[MEASUREMENT_PERIOD_OFFSET + 1] = static_cast<char>(period_ms >> 8);
}

void UbloxConfig::disableHardwareInit() {
  m_sequence.switchOff();
}

// -- The sequence

std::string UbloxConfig::getNextCommand(Action action) {
  const unsigned init = m_sequence.initCommandIdx();
  const unsigned complex = m_sequence.complexCommandIdx();
  if (action == Action::FINISH) {
    LOG.info("UbloxConfig::getNextCommand() m_init_command_idx = ", CommandSequence::INIT_COMMANDS,
             ". Now initialised");
    logRefused();
    m_refused.clear();
    m_command = ubx::INIT_COMMANDS[0];
    return {};
  }
  if (init < CommandSequence::INIT_COMMANDS) {
    m_command = ubx::INIT_COMMANDS[init];
  } else {
    LOG.detail(logflag::COMMANDS, "UbloxConfig::getNextCommand() m_init_command_idx = ", init,
               " m_complex_command_idx = ", complex);
    m_command = complexCommand(complex);
  }
  return m_command.frame;
}

void UbloxConfig::carryOut(Action action) {
  switch (action) {
    case Action::NOTHING:
      break;
    case Action::RESEND:
      sendCommand();
      break;
    case Action::SEND:
    case Action::FINISH:
      transmit(getNextCommand(action));
      break;
    case Action::NEXT_RATE:
      tryOtherBaudRate();
      break;
    case Action::NEXT_RATE_AND_RESET:
      tryOtherBaudRate();
      hardwareResetUblox();
      break;
  }
}

/// A step without a command of its own polls MON-GNSS, whose answer advances the sequence at once.
UbloxConfig::Command UbloxConfig::complexCommand(unsigned step) {
  if (step == STEP_SELECT_SYSTEMS && checkGnssSystem()) return {"CFG-GNSS", m_CFG_GNSS_string};
  if (step == STEP_GNSS_POLL) return ubx::GNSS_POLL;
  if (step == STEP_SAVE && m_save_config) {
    LOG.detail(logflag::COMMANDS, "SAVE CONFIG ***********************************************************");
    return ubx::SAVE_CONFIGURATION;
  }
  if (step >= STEP_FIRST_RAW && step <= STEP_LAST_RAW && step - STEP_FIRST_RAW < m_raw_cmd_post.size()) {
    return {RAW_NAMES[step - STEP_FIRST_RAW], m_raw_cmd_post[step - STEP_FIRST_RAW]};
  }
  if (step == STEP_NAVIGATION_RATE) return {ubx::NAVIGATION_RATE.name, m_navigation_rate};
  return ubx::MON_GNSS_POLL;
}

void UbloxConfig::transmit(std::string frame) {
  if (GnssUtils::fixUbloxChecksum(frame)) {
    const auto* const bytes = reinterpret_cast<const unsigned char*>(frame.data());
    const int length = static_cast<int>(frame.size());
    LOG.detail(logflag::COMMANDS, "UbloxConfig sends m_init_command_idx ", initCommandIdx(), " ",
               [&] { return hexDumpMessage(bytes, length, 0, 0, true); });
    m_input.sendBinary(bytes, length);
  }
  m_command_sent_time = GnssUtils::getMicrosecDuration(0);
}

void UbloxConfig::sendNextCommand() {
  carryOut(m_sequence.answered());
}

void UbloxConfig::sendCommand() {
  if (!isStopped()) transmit(m_command.frame);
}

void UbloxConfig::sendOther(Command command, bool is_rate) {
  m_sequence.otherCommand(is_rate);
  m_command = std::move(command);
  sendCommand();
}

bool UbloxConfig::isTimeout() const {
  return GnssUtils::getMicrosecDuration(0) - m_command_sent_time > ANSWER_US;
}

int64_t UbloxConfig::answerDue() const {
  return hasCommandToSend() ? m_command_sent_time + ANSWER_US + 1 : NEVER;
}

bool UbloxConfig::checkTimeout(bool count_hw_timeouts) {
  if (!isTimeout()) return false;
  const unsigned init = initCommandIdx();
  const Action action = m_sequence.periodOver(m_input.getLinesReceived(), count_hw_timeouts);
  logTimeout(action, init);
  carryOut(action);
  return true;
}

void UbloxConfig::logTimeout(Action action, unsigned init) const {
  if (action == Action::RESEND) {
    LOG.detail(logflag::COMMANDS, "Resending UbloxConfig::checkTimeout() m_timeout_counter ",
               m_sequence.periodsOver());
    return;
  }
  LOG.detail(logflag::COMMANDS, "UbloxConfig::handleTimeout() m_init_command_idx ", init);
  if (action == Action::SEND && !isPortConfirmed())
    LOG.detail(logflag::COMMANDS, "Timeout. But have change in getLinesReceived");
}

void UbloxConfig::tryOtherBaudRate() {
  LOG.detail(logflag::COMMANDS, "Timeout try other baud rate. getLinesReceived ", m_input.getLinesReceived());
  m_input.tryNextBaudRate();
  m_owner.disconnect(CloseReason::NEXT_RATE);
  m_sequence.forgetLines(m_input.getLinesReceived());
  LOG.detail(logflag::COMMANDS, "m_hw_timeout_counter ", m_sequence.ratesTried());
}

void UbloxConfig::handle_UBX_ACK_NAK_response(const UbxFrame& frame) {
  if (frame.id() != ubx::ACK_NAK || isStopped()) return;
  const unsigned init = m_sequence.initCommandIdx();
  const unsigned complex = m_sequence.complexCommandIdx();
  const bool is_initialised = isInitialised();
  ++m_naks;
  m_last_refused = m_command.name;
  const Action action = m_sequence.refused();
  if (action != Action::RESEND) {
    LOG.warning("NAK_RETRIES exceeded. m_init_command_idx ", init, " m_complex_command_idx ", complex,
                ". The receiver refuses ", m_command.name);
    if (!is_initialised) m_refused.push_back(m_command.name);
  }
  carryOut(action);
}

/// Logs which commands the receiver refused in the sequence that is now complete.
void UbloxConfig::logRefused() const {
  if (m_refused.empty()) return;
  std::string names;
  for (const auto name : m_refused) names.append(names.empty() ? "" : ", ").append(name);
  LOG.warning("The receiver is configured, but it refused ", m_refused.size(), " of the commands: ", names);
}

void UbloxConfig::takeRestart() {
  // Repeated requests must not hold up the hunt for the baud rate.
  if (!m_requests.takeRestart() || m_sequence.isAtFirstCommand()) return;
  restart();
  sendCommand();
}

void UbloxConfig::restart() {
  if (isStopped()) return;
  m_sequence.restart();
  m_refused.clear();
  m_command = ubx::INIT_COMMANDS[0];
}

// -- For the reports

std::optional<uint8_t> UbloxConfig::enabledSystems() const {
  return m_MON_GNSS.supported != 0 ? std::optional(m_MON_GNSS.enabled) : std::nullopt;
}

std::string UbloxConfig::stepName() const {
  using enum CommandSequence::State;
  const CommandSequence::State state = m_sequence.state();
  if (state == HUNTING) return "searching the receiver's baud rate";
  if (state == CHANGING_RATE) return "changing the receiver's baud rate";
  if (state == DONE) return "done";
  if (state == OFF) return "switched off";
  const unsigned number = m_sequence.initCommandIdx() + m_sequence.complexCommandIdx() + 1;
  return logging::text("command ", number, " of ",
                       CommandSequence::INIT_COMMANDS + CommandSequence::COMPLEX_STEPS, ": ", m_command.name);
}

// -- Single commands

uint32_t UbloxConfig::effectiveBaudrate(uint32_t configured) {
  const bool has_command =
      configured == 9600 || configured == 38400 || configured == 57600 || configured == 115200;
  return has_command ? configured : 19200;
}

void UbloxConfig::configureBaudrate(uint32_t effective) {
  switch (effective) {
    case 9600:
      configureBaudrate9600();
      break;
    case 38400:
      configureBaudrate38400();
      break;
    case 57600:
      configureBaudrate57600();
      break;
    case 115200:
      configureBaudrate115200();
      break;
    default:
      configureBaudrate19200();
      break;
  }
}

void UbloxConfig::configureSPI_TxReady() {
  sendOther({"CFG-PRT", m_CFG_PRT_string});
}

void UbloxConfig::disableReceiver() {
  sendOther(ubx::RECEIVER_STANDBY);
  sendOther(ubx::GNSS_STOP);
}

// -- Constellations

void UbloxConfig::setCfgGnss(CFG_GNSS record, std::string frame) {
  m_CFG_GNSS = std::move(record);
  m_CFG_GNSS_received = std::move(frame);
}

bool UbloxConfig::checkGnssSystem() {
  const auto frame = selectionFrame(m_MON_GNSS, m_CFG_GNSS, m_CFG_GNSS_received,
                                    m_requests.gnssSystemRequested(), gnssAugmentationRequested());
  if (!frame) return false;
  m_CFG_GNSS_string = *frame;
  return true;
}

}  // namespace ecu::koru::gpspub
