#include "tools/tap/Player.h"

#include <algorithm>

#include "platform/base/Time.h"

namespace ecu::koru::tap {

namespace {

constexpr int64_t LONGEST_TURN_NS = 20'000'000;  // then signals and the outputs have their turn
constexpr uint64_t PAUSE_BETWEEN_PASSES_NS = 1'000'000'000;

}  // namespace

bool Player::play() {
  const int64_t turn_ends_ns = time_source().steady_ns() + LONGEST_TURN_NS;
  if (m_held_ns) return true;
  do {
    if (!m_has_next && !read_next()) return m_waiting;
    if (due_of(m_next.boot_ns) > time_source().steady_ns()) return true;
    m_has_next = false;
    if (m_next.boot_ns >= m_newest.boot_ns) m_newest = {m_next.wall_us, m_next.boot_ns};
    m_listener.take(m_next);
  } while (time_source().steady_ns() < turn_ends_ns);
  return true;
}

/// Returns false at the end, and if the next message has not arrived yet (m_waiting).
bool Player::read_next() {
  auto state = m_reader.next(m_next);
  if (!m_begun && m_reader.beginning()) {
    m_begun = true;
    m_newest = *m_reader.beginning();
    m_listener.begin(*m_reader.beginning());
  }
  if (state == RecordingReader::State::end && m_options.loop && m_has_messages && m_reader.rewind()) {
    m_start_ns = due_of(m_newest_boot_ns + PAUSE_BETWEEN_PASSES_NS);
    m_pass_begun = false;
    state = m_reader.next(m_next);
  }
  m_waiting = state == RecordingReader::State::waiting;
  m_has_next = state == RecordingReader::State::message;
  m_over = !m_waiting && !m_has_next;
  if (!m_has_next) return false;
  if (!m_has_messages) m_start_ns = time_source().steady_ns();
  if (!m_pass_begun) m_newest_boot_ns = m_first_boot_ns = m_next.boot_ns;
  m_has_messages = m_pass_begun = true;
  m_newest_boot_ns = std::max(m_newest_boot_ns, m_next.boot_ns);
  return true;
}

int64_t Player::due_of(uint64_t boot_ns) const {
  if (m_options.speed <= 0 || boot_ns <= m_first_boot_ns) return m_start_ns;
  const double after_ns = static_cast<double>(boot_ns - m_first_boot_ns) / m_options.speed;
  const auto room_ns = static_cast<double>(NEVER - m_start_ns);
  return after_ns < room_ns / 2 ? m_start_ns + static_cast<int64_t>(after_ns) : NEVER;
}

void Player::hold(bool on) {
  const int64_t now_ns = time_source().steady_ns();
  if (!on && m_held_ns) m_start_ns += now_ns - *m_held_ns;
  m_held_ns = on ? std::optional(m_held_ns.value_or(now_ns)) : std::nullopt;
}

Moment Player::now() const {
  uint64_t boot_ns = m_newest.boot_ns;
  if (m_has_messages && !m_over) {
    const int64_t passed_ns = m_held_ns.value_or(time_source().steady_ns()) - m_start_ns;
    const double played_ns = static_cast<double>(passed_ns) * m_options.speed;
    boot_ns = std::max(boot_ns, m_first_boot_ns + static_cast<uint64_t>(played_ns));
  }
  const auto since_us = static_cast<int64_t>((boot_ns - m_newest.boot_ns) / 1000);
  return {.wall_us = m_newest.wall_us + since_us, .boot_ns = boot_ns};
}

void Player::add_waits(std::vector<pollfd>& waits) const {
  if (m_waiting && !m_held_ns) waits.push_back({m_reader.fd(), POLLIN, 0});
}

int64_t Player::due_ns() const {
  if (m_waiting || m_over || m_held_ns) return NEVER;
  return m_has_next ? due_of(m_next.boot_ns) : 0;
}

}  // namespace ecu::koru::tap
