#include "sim/gnss/LinkPlayback.h"

#include <algorithm>
#include <utility>

namespace ecu::koru::sim {
namespace {

using Kind = LinkRecording::Kind;

constexpr int64_t LONGEST_WAIT_US = 300'000;  // for a frame of the host
constexpr int64_t EARLY_CLOSE_US = 1'000'000;

std::string rate_text(unsigned baud) {
  return baud == 0 ? "an unknown rate" : std::to_string(baud) + " bit/s";
}

}  // namespace

LinkPlayback::LinkPlayback(const LinkRecording& recording, Say say)
    : m_recording(recording), m_say(std::move(say)), m_comparison(make_comparison()) {}

HostComparison LinkPlayback::make_comparison() {
  FrameCutter cutter;
  std::vector<HostFrame> frames;
  for (const Event& event : m_recording.events) {
    if (event.kind == Kind::from_host) cutter.add(m_recording.bytes_of(event), frames);
    m_frames.push_back(frames.size());
  }
  return {std::move(frames), [this](const auto& difference) { note_difference(difference); }};
}

void LinkPlayback::note_difference(const HostComparison::Difference& difference) {
  constexpr size_t MOST_SAID = 20;
  const std::string text = text_of(difference);
  if (m_statistics.first_difference.empty()) m_statistics.first_difference = text;
  if (m_comparison.differences() <= MOST_SAID) m_say("the host differs from the recording " + text);
  if (m_comparison.differences() == MOST_SAID) m_say("further differences are only counted");
}

std::string LinkPlayback::advance_to(int64_t now_us, bool held, unsigned host_baud) {
  pass_time(now_us, held);
  std::string out;
  while (!finished() && is_due(m_recording.events[m_next], held)) {
    play(m_recording.events[m_next++], host_baud, out);
    m_waited_us = 0;
  }
  return out;
}

void LinkPlayback::hear(std::string_view bytes) {
  if (!finished() || !heard_all()) m_comparison.hear(bytes);
}

void LinkPlayback::pass_time(int64_t now_us, bool held) {
  const int64_t passed_us = m_begun ? now_us - m_now_us : 0;
  m_now_us = now_us;
  m_begun = m_begun || held;
  if (m_is_open && !held && m_begun) skip_to_close();
  m_stands = !m_begun || (m_is_open && !held);
  if (m_stands || finished()) return;
  const int64_t next_us = m_recording.events[m_next].at_us;
  // While an event waits for the host, only the waiting gets longer.
  if (m_played_us >= next_us) {
    m_waited_us += passed_us;
  } else {
    m_played_us += passed_us;
  }
}

/// The host closed the port. If it did that soon afterwards in the recording too, that time has come.
void LinkPlayback::skip_to_close() {
  const auto begin = m_recording.events.begin() + static_cast<std::ptrdiff_t>(m_next);
  const auto close = std::find_if(begin, m_recording.events.end(),
                                  [](const Event& event) { return event.kind == Kind::closed; });
  if (close == m_recording.events.end() || close->at_us > m_played_us + EARLY_CLOSE_US) return;
  for (auto event = begin; event != close; ++event)
    if (event->kind == Kind::from_receiver) m_statistics.bytes_left_out += event->end - event->begin;
  m_next = static_cast<size_t>(close - m_recording.events.begin());
  m_played_us = close->at_us;
}

bool LinkPlayback::is_due(const Event& event, bool held) {
  if (m_stands && event.kind != Kind::closed) return false;
  if (event.at_us > m_played_us) return false;
  if (event.kind == Kind::opened) return held;
  if (event.kind != Kind::from_host) return true;
  const size_t frames_before = m_next == 0 ? 0 : m_frames[m_next - 1];
  return m_comparison.next() != frames_before || m_frames[m_next] == frames_before ||
         m_waited_us >= LONGEST_WAIT_US;
}

void LinkPlayback::play(const Event& event, unsigned host_baud, std::string& out) {
  switch (event.kind) {
    case Kind::opened:
      m_is_open = true;
      ++m_statistics.openings;
      m_rate_to_check = event.baud;
      break;
    case Kind::rate:
      ++m_statistics.rate_changes;
      m_rate_to_check = event.baud;
      break;
    case Kind::closed:
      m_is_open = false;
      break;
    case Kind::from_receiver:
      out += m_recording.bytes_of(event);
      ++m_statistics.pieces;
      m_statistics.bytes += event.end - event.begin;
      check_rate(host_baud);
      break;
    case Kind::from_host:
      break;
  }
}

void LinkPlayback::check_rate(unsigned host_baud) {
  const unsigned recorded = std::exchange(m_rate_to_check, 0);
  if (recorded == 0 || recorded == host_baud) return;
  if (m_statistics.other_rates++ == 0)
    m_say("the host's rate is " + rate_text(host_baud) + ", in the recording it was " + rate_text(recorded));
}

int64_t LinkPlayback::next_us() const {
  if (finished() || m_stands) return INT64_MAX;
  const Event& event = m_recording.events[m_next];
  if (event.at_us > m_played_us) return m_now_us + event.at_us - m_played_us;
  return event.kind == Kind::from_host ? m_now_us + LONGEST_WAIT_US - m_waited_us : INT64_MAX;
}

void LinkPlayback::finish() {
  m_statistics.played_us = m_played_us;
  if (m_next > 0) m_comparison.give_up_before(m_frames[m_next - 1]);
}

}  // namespace ecu::koru::sim
