#include "sim/gnss/LinkSession.h"

#include <poll.h>

#include <algorithm>
#include <array>
#include <iostream>
#include <span>

#include "sim/gnss/Machine.h"
#include "sim/gnss/Text.h"
#include "sim/gnss/Utc.h"

namespace ecu::koru::sim {
namespace {

constexpr int64_t LOOK_US = 5'000;  // how often to check if the terminal is open
constexpr unsigned USUAL_BAUD = 9600;

std::span<const uint8_t> span_of(std::string_view bytes) {
  return {reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()};
}

}  // namespace

LinkSession::LinkSession(const ProgramOptions& options)
    : m_options(options),
      m_signals(block_signals()),
      m_pty(USUAL_BAUD),
      m_playback(*m_options.link_recording,
                 [](const std::string& text) { std::cerr << "gnss-sim: " << text << std::endl; }) {
  if (!options.link.empty()) m_link.emplace(options.link, m_pty.path());
  if (options.seconds) m_end_us = now_us() + static_cast<int64_t>(*options.seconds * SECOND_US);
}

void LinkSession::run() {
  while (!over() && !m_playback.finished()) {
    look_at_host();
    const std::string bytes = m_playback.advance_to(now_us(), m_held, m_pty.host_baud());
    if (!bytes.empty()) m_overrun_bytes += bytes.size() - m_pty.write(span_of(bytes));
    sleep_until(std::min(m_playback.next_us(), now_us() + LOOK_US));
  }
  if (!over()) let_host_finish();
  m_playback.finish();
}

bool LinkSession::over() const {
  return m_stopped || now_us() >= m_end_us;
}

void LinkSession::look_at_host() {
  const bool held = m_pty.held();
  if (m_held && !held) {
    while (hear_host()) {  // the last bytes before it closed
    }
    m_pty.discard_unread();
  }
  m_held = held;
}

bool LinkSession::hear_host() {
  std::array<uint8_t, 1024> from_host;
  const size_t count = m_pty.read(from_host);
  m_playback.hear({reinterpret_cast<const char*>(from_host.data()), count});
  return count > 0;
}

void LinkSession::sleep_until(int64_t wake_us) {
  const int64_t rest_us = std::max<int64_t>(0, std::min(wake_us, m_end_us) - now_us());
  const timespec rest{static_cast<time_t>(rest_us / SECOND_US),
                      static_cast<long>(rest_us % SECOND_US * 1000)};
  // A closed terminal is always ready, so ppoll would not sleep.
  std::array<pollfd, 2> ready{{{m_signals.get(), POLLIN, 0}, {m_held ? m_pty.descriptor() : -1, POLLIN, 0}}};
  if (ppoll(ready.data(), ready.size(), &rest, nullptr) <= 0) return;
  if (ready[0].revents != 0) m_stopped = true;
  if ((ready[1].revents & POLLIN) != 0) (void)hear_host();
}

/// The host may still be reading and answering. The terminal disappears when the program ends.
void LinkSession::let_host_finish() {
  const int64_t patience_us = now_us() + SECOND_US / 2;
  while (!over() && now_us() < patience_us) {
    look_at_host();
    sleep_until(now_us() + LOOK_US);
  }
}

void LinkSession::print_statistics() const {
  const LinkPlayback::Statistics& s = m_playback.statistics();
  const HostComparison& host = m_playback.comparison();
  std::cerr << "gnss-sim: played " << s.pieces << " pieces with " << s.bytes << " bytes in "
            << decimal(static_cast<double>(s.played_us) / SECOND_US, 1) << " s; " << s.bytes_left_out
            << " bytes left out because the host had closed the port, " << m_overrun_bytes
            << " not read in time\n"
            << "gnss-sim: " << s.openings << " openings, " << s.rate_changes << " other changes of rate; at "
            << s.other_rates << " of them the host's rate was another one than in the recording\n"
            << "gnss-sim: the host sent " << host.heard() << " frames, " << host.differences()
            << " differences from the recording\n";
  if (!s.first_difference.empty()) std::cerr << "gnss-sim: the first one is " << s.first_difference << '\n';
  if (!m_playback.finished()) std::cerr << "gnss-sim: the recording was not played to its end\n";
}

}  // namespace ecu::koru::sim
