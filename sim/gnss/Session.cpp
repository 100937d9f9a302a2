#include "sim/gnss/Session.h"

#include <poll.h>
#include <time.h>

#include <algorithm>
#include <array>
#include <iostream>

#include "sim/gnss/Machine.h"
#include "sim/gnss/Utc.h"

namespace ecu::koru::sim {
namespace {

constexpr int64_t CHUNK_US = 5'000;        // hands over bytes in portions, as a port's driver does
constexpr int64_t LOOK_US = 10'000;        // how often to check if the terminal is open
constexpr int64_t SETTLE_US = 100'000;     // from the opening to the first epoch of a recording
constexpr int64_t OVERSLEPT_US = 200'000;  // after a longer delay the bytes are lost instead of late

}  // namespace

Session::Session(const ProgramOptions& options)
    : m_options(options),
      m_signals(block_signals()),
      m_pty(options.receiver.power_up_baud()),
      m_report(options.report) {
  if (!options.trace.empty()) m_trace.emplace(options.trace);
  if (!options.link.empty()) m_link.emplace(options.link, m_pty.path());
  if (options.seconds) m_end_us = now_us() + static_cast<int64_t>(*options.seconds * SECOND_US);
}

void Session::run() {
  if (m_options.receiver.recording) wait_for_host();
  if (over()) return;
  switch_on();
  while (!over()) {
    look_at_host();
    deliver();
    if (m_receiver->finished()) return let_host_finish();
    sleep_until(next_wake_us());
  }
}

void Session::switch_on() {
  ReceiverOptions options = m_options.receiver;
  options.start_us = now_us() + (options.recording ? SETTLE_US : 0);
  options.utc_start_us = m_options.utc_us.value_or(clock_ns(CLOCK_REALTIME) / 1000);
  m_receiver.emplace(options);
  m_report.set_start(options.start_us);
  m_receiver->set_observer(&m_report);
  m_receiver->set_open(false);
}

bool Session::over() const {
  return m_stopped || now_us() >= m_end_us;
}

void Session::wait_for_host() {
  while (!over() && !m_pty.held()) sleep_until(now_us() + LOOK_US);
}

void Session::look_at_host() {
  const bool held = m_pty.held();
  if (m_held && !held) {
    while (hear_host()) {  // the last bytes before it closed
    }
    m_pty.discard_unread();
  }
  if (held != m_held && m_trace) m_trace->interrupted();
  m_held = held;
  m_receiver->set_open(held);
  m_receiver->set_host_baud(m_pty.host_baud());
}

void Session::deliver() {
  const int64_t now = now_us();
  if (m_held && m_wake_us != INT64_MAX && now > m_wake_us + OVERSLEPT_US) {
    m_receiver->set_open(false);
    m_receiver->advance_to(now);
    m_receiver->set_open(true);
  }
  m_receiver->advance_to(now);
  std::array<uint8_t, 4096> bytes;
  while (const size_t count = m_receiver->read(bytes)) hand_over(std::span(bytes).first(count));
}

void Session::hand_over(std::span<const uint8_t> bytes) {
  const int64_t written_ns = clock_ns(CLOCK_MONOTONIC);
  const size_t count = m_pty.write(bytes);
  m_overrun_bytes += bytes.size() - count;
  if (!m_trace) return;
  const bool readable = m_pty.host_baud() == m_receiver->baud();
  if (readable) m_trace->written(bytes.first(count), written_ns);
  if (!readable || count < bytes.size()) m_trace->interrupted();
}

int64_t Session::next_wake_us() const {
  if (!m_held) return now_us() + LOOK_US;
  const int64_t run_end_us = m_receiver->run_end_us();
  const int64_t next_us = m_receiver->next_byte_us();
  return run_end_us == INT64_MAX ? next_us : std::min(next_us + CHUNK_US, run_end_us);
}

void Session::sleep_until(int64_t wake_us) {
  m_wake_us = std::min(wake_us, m_end_us);
  const int64_t rest_us = std::max<int64_t>(0, m_wake_us - now_us());
  const timespec rest{static_cast<time_t>(rest_us / SECOND_US),
                      static_cast<long>(rest_us % SECOND_US * 1000)};
  // A closed terminal is always ready, so ppoll would not sleep.
  std::array<pollfd, 3> ready{{{m_signals.get(), POLLIN, 0},
                               {m_held ? m_pty.descriptor() : -1, POLLIN, 0},
                               {m_receiver ? m_console.descriptor() : -1, POLLIN, 0}}};
  if (ppoll(ready.data(), ready.size(), m_wake_us == INT64_MAX ? nullptr : &rest, nullptr) <= 0) return;
  if (ready[0].revents != 0) m_stopped = true;
  if ((ready[1].revents & POLLIN) != 0) (void)hear_host();
  if (ready[2].revents != 0) hear_console();
}

bool Session::hear_host() {
  std::array<uint8_t, 1024> from_host;
  const size_t count = m_pty.read(from_host);
  if (count == 0 || !m_receiver) return false;
  m_receiver->set_host_baud(m_pty.host_baud());
  deliver();  // the receiver hears the new bytes only from now on
  m_receiver->write(std::span(from_host).first(count));
  return true;
}

void Session::hear_console() {
  for (const std::string& line : m_console.read_lines())
    if (const auto error = carry_out(line, *m_receiver, now_us()))
      std::cerr << "gnss-sim: " << *error << std::endl;
}

void Session::let_host_finish() {
  // The terminal disappears when the program ends, with the bytes that the host has not read yet.
  const int64_t patience_us = now_us() + SECOND_US;
  do {
    sleep_until(now_us() + LOOK_US);
  } while (!over() && now_us() < patience_us && m_pty.held() && m_pty.unread() > 0);
}

void Session::print_statistics() const {
  if (!m_receiver) {
    std::cerr << "gnss-sim: nobody opened the port, nothing was played\n";
    return;
  }
  const Statistics s = m_receiver->statistics();
  std::cerr << "gnss-sim: " << s.epochs << " epochs (" << s.silent_epochs << " silent), " << s.sentences_sent
            << " sentences sent, " << s.sentences_overrun
            << " left out because the line cannot carry the rate\n"
            << "gnss-sim: faults: " << s.sentences_dropped << " dropped, " << s.sentences_corrupted
            << " corrupted, " << s.sentences_split << " split\n"
            << "gnss-sim: " << s.bytes_sent << " bytes sent, of those " << s.bytes_lost << " to nobody and "
            << m_overrun_bytes << " not read in time; " << s.bytes_from_host << " bytes from the host\n"
            << "gnss-sim: " << s.frames_received << " commands heard, " << s.frames_corrupted
            << " with a wrong checksum; " << s.frames_sent << " UBX messages sent, " << s.frames_lost
            << " lost; " << s.power_ups - 1 << " restarts\n";
}

}  // namespace ecu::koru::sim
