#include "sim/replay/RecordedLink.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <utility>

#include "sim/gnss/Files.h"

namespace ecu::koru::sim {

namespace {

using Kind = LinkRecording::Kind;

// The service tries to open a missing device once a second, so a try belongs to the opening that is nearer.
constexpr int64_t TRIES_US = 1'000'000;
constexpr int64_t NEAR_US = TRIES_US / 2;
constexpr int64_t LATEST_FIRST_TRY_US = 2 * TRIES_US;
// What begins with an opening later than that goes on where another recording was full.
constexpr int64_t LONGEST_WITHOUT_DEVICE_US = 86'400'000'000;
// Without a close at the end, the last epoch still gets out.
constexpr int64_t LAST_EPOCH_US = 1'500'000;

std::string rate_text(unsigned baud) {
  return baud == 0 ? "the port without a speed" : "the port at " + std::to_string(baud) + " bit/s";
}

int64_t begin_of(const LinkRecording& recording) {
  const bool is_first =
      recording.events.front().kind == Kind::opened && recording.begin_us < LONGEST_WITHOUT_DEVICE_US;
  return is_first ? recording.begin_us : 0;
}

/// Returns true if the port is open at the end.
bool ends_open(const LinkRecording& recording) {
  return recording.events.back().kind != Kind::closed;
}

/// Throws FileError if the second does not go on where the first was full.
void append(LinkRecording& to, const LinkRecording& next, const std::string& file) {
  const int64_t later_us = next.begin_us - to.begin_us;
  const bool begins_open = next.events.front().kind != Kind::opened;
  if (later_us < to.events.back().at_us || begins_open != ends_open(to))
    throw FileError(file + ": does not go on where the file before it ends");
  const size_t offset = to.bytes.size();
  to.bytes += next.bytes;
  for (auto event : next.events) {
    event.at_us += later_us;
    event.begin += offset;
    event.end += offset;
    to.events.push_back(event);
  }
}

}  // namespace

LinkRecording load_link_recordings(const std::vector<std::string>& files) {
  LinkRecording all;
  for (const std::string& file : files) {
    LinkRecording each = load_link_recording(file);
    if (!all.note.empty()) break;  // the rest is missing
    if (!each.note.empty()) each.note.insert(0, file + ": ");
    if (all.events.empty()) {
      all = std::move(each);
    } else {
      append(all, each, file);
      all.note = each.note;
    }
  }
  return all;
}

RecordedLink::RecordedLink(const LinkRecording& recording, Differences& differences)
    : m_recording(recording),
      m_events(recording.events),
      m_begin_us(begin_of(recording)),
      m_differences(differences),
      m_sent(differences),
      m_count(m_events.size()),
      m_was_open(m_events.front().kind != Kind::opened && m_events.front().kind != Kind::closed) {
  if (m_events.back().kind == Kind::closed) {
    --m_count;
  } else {
    m_sent.expect_nothing_after(time_of(m_events.back()));
  }
}

/// A device that was there was opened in the first seconds. The service tries to open a missing one every
/// second.
int64_t RecordedLink::first_try_us() const {
  return m_begin_us < LATEST_FIRST_TRY_US ? m_begin_us : m_begin_us % TRIES_US;
}

int64_t RecordedLink::end_us() const {
  return time_of(m_events.back()) + (m_events.back().kind == Kind::closed ? 0 : LAST_EPOCH_US);
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
  return time_of(next()) + (next().kind == Kind::opened ? NEAR_US : 0);
}

/// Returns true if the next event is of this kind and the service is about to repeat it.
bool RecordedLink::is_next(Kind kind) const {
  return has_next() && next().kind == kind && time_of(next()) <= m_now_us + NEAR_US;
}

void RecordedLink::happens(const Event& event) {
  switch (event.kind) {
    case Kind::opened:
    case Kind::rate:
      m_was_open = true;
      m_baud = event.baud;
      break;
    case Kind::closed:
      m_was_open = false;
      m_is_early_closed = false;
      if (m_is_open) m_gone_us = time_of(event);
      break;
    case Kind::from_host:
      m_sent.expect(time_of(event), std::string(m_recording.bytes_of(event)));
      break;
    case Kind::from_receiver:
      receive(event);
      break;
  }
}

void RecordedLink::receive(const Event& event) {
  if (m_is_open) {
    m_pieces.push_back(m_recording.bytes_of(event));
  } else if (!std::exchange(m_loss_reported, true)) {
    m_differences.add(time_of(event), std::to_string(event.end - event.begin) + " bytes read",
                      "the port closed");
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
  const std::string sent(bytes.begin(), bytes.end());
  m_sent.found(m_now_us, sent);
  if (is_next(Kind::from_host) && m_recording.bytes_of(next()) == sent) m_done_us = time_of(next());
}

// -- Opening and closing

/// Returns the opening that the service may be about to repeat, or m_count without one.
size_t RecordedLink::next_opening() const {
  for (size_t i = m_next; i < m_count && time_of(m_events[i]) <= m_now_us + NEAR_US; ++i) {
    if (m_events[i].kind == Kind::opened) return i;
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
  m_loss_reported = false;
  if (!open) {
    m_is_early_closed = m_was_open;
    if (is_next(Kind::closed)) m_done_us = time_of(next());
    return;
  }
  const size_t opening = next_opening();
  if (opening < m_count) m_done_us = time_of(m_events[opening]);
  while (opening < m_count && m_next <= opening) happens(m_events[m_next++]);
  m_is_open = true;
  if (std::exchange(m_is_early_closed, false) && !is_over())
    m_differences.add(m_now_us, "the port left open", "it closed and opened again");
}

void RecordedLink::set_host_baud(unsigned baud) {
  if (m_baud != 0 && baud != m_baud && !is_over())
    m_differences.add(m_now_us, rate_text(m_baud), rate_text(baud));
}

}  // namespace ecu::koru::sim
