#include "sim/replay/RecordedLink.h"

#include <algorithm>
#include <cerrno>
#include <utility>

namespace ecu::koru::sim {

namespace {

using Kind = LinkEvent::Kind;

// The service tries to open a missing device once a second, so a try belongs to the opening that is nearer.
constexpr int64_t OPENS_NEAR_US = 500'000;
// Without a close at the end, the last epoch still gets out.
constexpr int64_t LAST_EPOCH_US = 1'500'000;

std::string rate_text(unsigned baud) {
  return baud == 0 ? "the port without a speed" : "the port at " + std::to_string(baud) + " bit/s";
}

}  // namespace

RecordedLink::RecordedLink(const RecordedTraffic& recording, Differences& differences)
    : m_events(recording.events),
      m_lag_us(recording.lag_us),
      m_differences(differences),
      m_sent(differences),
      m_count(m_events.size()),
      m_was_open(m_events.front().kind != Kind::OPENED && m_events.front().kind != Kind::CLOSED) {
  if (m_events.back().kind == Kind::CLOSED) --m_count;
}

int64_t RecordedLink::end_us() const {
  return m_events.back().at_us + (m_events.back().kind == Kind::CLOSED ? 0 : LAST_EPOCH_US);
}

void RecordedLink::finish() {
  while (has_next()) happens(m_events[m_next++]);
  m_sent.finish();
}

void RecordedLink::advance_to(int64_t now_us) {
  m_now_us = now_us;
  while (next_event_us() <= now_us) happens(m_events[m_next++]);
  m_sent.settle(now_us);
}

int64_t RecordedLink::next_byte_us() const {
  return m_gone_us > m_now_us ? std::min(next_event_us(), m_gone_us) : next_event_us();
}

/// An opening waits for the service to open the port.
int64_t RecordedLink::next_event_us() const {
  if (!has_next()) return INT64_MAX;
  return next().at_us + (next().kind == Kind::OPENED ? OPENS_NEAR_US : 0);
}

void RecordedLink::happens(const LinkEvent& event) {
  switch (event.kind) {
    case Kind::OPENED:
    case Kind::RATE:
      m_was_open = true;
      m_baud = event.baud;
      break;
    case Kind::CLOSED:
      m_was_open = false;
      m_is_early_closed = false;
      if (m_is_open) m_gone_us = event.at_us + m_lag_us;
      break;
    case Kind::SENT:
      m_sent.expect(event.at_us, event.bytes);
      break;
    case Kind::RECEIVED:
      receive(event);
      break;
  }
}

void RecordedLink::receive(const LinkEvent& event) {
  if (m_is_open) {
    m_pieces.emplace_back(event.bytes);
  } else if (!std::exchange(m_loss_told, true)) {
    m_differences.add(event.at_us, std::to_string(event.bytes.size()) + " bytes read", "the port closed");
  }
}

size_t RecordedLink::read(std::span<uint8_t> out) {
  if (m_pieces.empty()) return 0;
  std::string_view& piece = m_pieces.front();
  const size_t count = std::min(out.size(), piece.size());
  std::copy_n(piece.begin(), count, out.begin());
  piece.remove_prefix(count);
  if (piece.empty()) m_pieces.pop_front();
  return count;
}

void RecordedLink::write(std::span<const uint8_t> bytes) {
  m_sent.found(m_now_us, std::string(bytes.begin(), bytes.end()));
}

// -- Opening and closing

/// Returns the opening that the service may be about to repeat, or m_count without one.
size_t RecordedLink::next_opening() const {
  for (size_t i = m_next; i < m_count && m_events[i].at_us <= m_now_us + OPENS_NEAR_US; ++i) {
    if (m_events[i].kind == Kind::OPENED) return i;
  }
  return m_count;
}

int RecordedLink::open_error() {
  const bool is_there = m_was_open || next_opening() < m_count;
  return is_there ? 0 : ENOENT;
}

void RecordedLink::set_open(bool open) {
  m_pieces.clear();
  m_is_open = false;
  m_gone_us = INT64_MAX;
  m_loss_told = false;
  if (!open) {
    m_is_early_closed = m_was_open;
    return;
  }
  const size_t opening = next_opening();
  while (opening < m_count && m_next <= opening) happens(m_events[m_next++]);
  m_is_open = true;
  if (std::exchange(m_is_early_closed, false))
    m_differences.add(m_now_us, "the port left open", "it closed and opened again");
}

void RecordedLink::set_host_baud(unsigned baud) {
  if (m_baud != 0 && baud != m_baud) m_differences.add(m_now_us, rate_text(m_baud), rate_text(baud));
}

}  // namespace ecu::koru::sim
