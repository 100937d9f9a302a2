#include "sim/ecu/Session.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <iostream>

#include "tools/common/StopSignals.h"

namespace ecu::koru::sim {

namespace {

// A lost connection needs at least a second to come back, so no loss is missed at this interval.
constexpr int CONNECTION_CHECK_MS = 100;

void complain(std::string_view text) {
  std::cerr << "ecu-sim: " << text << std::endl;
}

}  // namespace

std::string Session::start(const std::vector<Publication>& said_once) {
  const auto state = m_unit.everything();
  m_complete = m_publisher.send_confirmed(state) && m_publisher.send(said_once);
  if (!m_complete) return "the broker did not take everything";
  const size_t count = state.size() + said_once.size();
  m_output.write("ecu-sim: " + std::to_string(count) + " messages published\n");
  return m_output.problem();
}

void Session::keep() {
  const tool::StopSignals signals;
  (void)std::signal(SIGTTIN, SIG_IGN);  // otherwise terminal input stops the program in the background
  bool going_on = true;
  while (going_on) {
    pollfd waits[] = {{signals.fd(), POLLIN, 0}, {m_input_ended ? -1 : STDIN_FILENO, POLLIN, 0}};
    if (poll(waits, std::size(waits), CONNECTION_CHECK_MS) < 0 && errno != EINTR) return;
    restore_after_reconnect();
    if (waits[0].revents != 0) return;
    if (waits[1].revents != 0) going_on = read_commands();
  }
}

/// Returns false after "quit".
bool Session::read_commands() {
  char bytes[65536];
  const ssize_t length = read(STDIN_FILENO, bytes, sizeof bytes);
  if (length < 0 && (errno == EINTR || errno == EAGAIN)) return true;
  m_input_ended = length <= 0;
  m_input.add(m_input_ended ? "\n" : std::string_view(bytes, static_cast<size_t>(length)));
  while (true) {
    try {
      const auto line = m_input.next();
      if (!line) return true;
      if (!is_blank(*line) && !obey(*line)) return false;
    } catch (const BadCommand& error) {
      complain(error.what());
    }
  }
}

bool Session::obey(std::string_view line) {
  const Command command = parse_command(line);
  if (std::holds_alternative<Quit>(command)) return false;
  if (std::holds_alternative<ShowHelp>(command)) show_help();
  publish(command);
  return true;
}

void Session::show_help() {
  if (!m_output.write(command_help()) && !m_output.problem().empty()) complain(m_output.problem());
}

void Session::publish(const Command& command) {
  const auto publications = m_unit.apply(command);
  if (m_publisher.send(publications)) return;
  if (is_said_once(command)) {
    complain("not sent: the broker cannot be reached");
  } else {
    m_complete = false;
    complain("not sent yet: the broker cannot be reached; follows when it can");
  }
}

void Session::restore_after_reconnect() {
  if (!m_transport.is_connected()) {
    m_complete = false;
  } else if (!m_complete) {
    m_complete = m_publisher.send(m_unit.everything());
  }
}

}  // namespace ecu::koru::sim
