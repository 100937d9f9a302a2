#include "ublox/CommandSequence.h"

namespace ecu::koru::gpspub {

namespace {

constexpr unsigned NAK_RETRIES = 3;
constexpr unsigned MAX_TIMEOUTS_UNCONFIRMED = 5;
constexpr unsigned MAX_TIMEOUTS_CONFIRMED = 4;
constexpr unsigned TIMEOUTS_PER_HW_RESET = 19;

}  // namespace

CommandSequence::State CommandSequence::state() const {
  if (m_stopped) return State::OFF;
  if (m_initialised) return State::DONE;
  if (!m_port_confirmed) return m_in_flight == InFlight::RATE ? State::CHANGING_RATE : State::HUNTING;
  return m_init_command_idx < INIT_COMMANDS ? State::INIT_LIST : State::COMPLEX;
}

bool CommandSequence::hasCommandToSend() const {
  return !m_initialised && !m_stopped;
}

bool CommandSequence::isAtFirstCommand() const {
  return !m_initialised && m_init_command_idx == 0 && m_complex_command_idx == 0 &&
         m_in_flight == InFlight::SEQUENCE;
}

CommandSequence::Action CommandSequence::answered() {
  if (!hasCommandToSend()) return Action::NOTHING;
  begin(InFlight::SEQUENCE);
  if (m_init_command_idx < INIT_COMMANDS) {
    ++m_init_command_idx;
    return Action::SEND;  // after the last init command, the complex step that is due
  }
  if (++m_complex_command_idx < COMPLEX_STEPS) return Action::SEND;
  m_initialised = true;
  m_init_command_idx = m_complex_command_idx = 0;
  return Action::FINISH;
}

CommandSequence::Action CommandSequence::refused() {
  if (m_stopped) return Action::NOTHING;
  if (++m_nak_counter < NAK_RETRIES) return Action::RESEND;
  m_nak_counter = 0;
  return answered();
}

CommandSequence::Action CommandSequence::periodOver(int lines, bool count_hw_timeouts) {
  const unsigned max_timeouts = m_port_confirmed ? MAX_TIMEOUTS_CONFIRMED : MAX_TIMEOUTS_UNCONFIRMED;
  if (++m_timeout_counter >= max_timeouts) return handleTimeout(lines, count_hw_timeouts);
  m_lines_received = lines;
  return Action::RESEND;
}

CommandSequence::Action CommandSequence::handleTimeout(int lines, bool count_hw_timeouts) {
  m_timeout_counter = 0;
  if (m_port_confirmed) return answered();
  if (lines != m_lines_received) {
    m_lines_received = lines;
    m_init_command_idx = 0;
    begin(InFlight::SEQUENCE);
    return Action::SEND;
  }
  m_hw_timeout_counter = count_hw_timeouts ? m_hw_timeout_counter + 1 : 1;
  return m_hw_timeout_counter % TIMEOUTS_PER_HW_RESET == 0 ? Action::NEXT_RATE_AND_RESET : Action::NEXT_RATE;
}

void CommandSequence::otherCommand(bool is_rate) {
  begin(is_rate ? InFlight::RATE : InFlight::OTHER);
}

void CommandSequence::confirmPort() {
  m_port_confirmed = true;
  m_hw_timeout_counter = 0;
}

void CommandSequence::restart() {
  if (m_stopped) return;
  m_initialised = false;
  m_init_command_idx = m_complex_command_idx = 0;
  begin(InFlight::SEQUENCE);
}

void CommandSequence::begin(InFlight what) {
  m_in_flight = what;
  m_nak_counter = m_timeout_counter = 0;
}

}  // namespace ecu::koru::gpspub
