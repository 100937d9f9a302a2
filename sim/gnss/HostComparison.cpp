#include "sim/gnss/HostComparison.h"

#include <algorithm>
#include <cstdint>
#include <span>

#include "sim/gnss/Text.h"
#include "sim/gnss/UbxFrame.h"

namespace ecu::koru::sim {
namespace {

constexpr std::string_view SYNC = "\xB5\x62";
constexpr size_t ID_END = 4;  // of sync, class and id
constexpr size_t HEADER_SIZE = 6;
constexpr size_t FRAME_OVERHEAD = 8;
constexpr size_t MAX_PAYLOAD = 4096;  // a longer length is no frame's

std::span<const uint8_t> span_of(std::string_view bytes) {
  return {reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()};
}

/// Returns the size of the frame that `bytes` begin with, or 0 if that cannot be known yet.
size_t size_of_first(std::string_view bytes) {
  if (bytes.empty()) return 0;
  if (!bytes.starts_with(SYNC.substr(0, bytes.size()))) return 1;
  if (bytes.size() < HEADER_SIZE) return 0;
  const size_t payload = number_at(span_of(bytes), 4, 2);
  return payload > MAX_PAYLOAD ? 1 : payload + FRAME_OVERHEAD;
}

bool has_same_id(std::string_view a, std::string_view b) {
  return a.size() > ID_END && b.size() > ID_END && a.substr(0, ID_END) == b.substr(0, ID_END);
}

std::string shown(std::string_view bytes) {
  constexpr size_t LONGEST = 80;
  if (bytes.empty()) return "nothing";
  const auto more =
      bytes.size() > LONGEST ? " ... (" + std::to_string(bytes.size()) + " bytes)" : std::string();
  return hex_bytes(span_of(bytes.substr(0, LONGEST))) + more;
}

}  // namespace

void FrameCutter::add(std::string_view bytes, std::vector<HostFrame>& frames) {
  m_held += bytes;
  size_t at = 0;
  for (size_t size; (size = size_of_first(std::string_view(m_held).substr(at))) != 0; at += size) {
    if (at + size > m_held.size()) break;
    frames.push_back({m_offset + at, m_held.substr(at, size)});
  }
  m_held.erase(0, at);
  m_offset += at;
}

void HostComparison::hear(std::string_view bytes) {
  std::vector<HostFrame> frames;
  m_cutter.add(bytes, frames);
  for (const HostFrame& frame : frames) compare(frame);
}

void HostComparison::compare(const HostFrame& frame) {
  constexpr size_t FAR = 32;  // how many frames may be left out at once
  ++m_heard;
  const size_t far = std::min(m_next + FAR, m_expected.size());
  for (size_t i = m_next; i < far; ++i) {
    if (m_expected[i].bytes != frame.bytes) continue;
    give_up_before(i);
    ++m_next;
    return;
  }
  if (m_next < m_expected.size() && has_same_id(m_expected[m_next].bytes, frame.bytes)) {
    differ(m_expected[m_next].bytes, frame.bytes);
    ++m_next;
  } else {
    differ({}, frame.bytes);
  }
}

void HostComparison::give_up_before(size_t index) {
  for (; m_next < std::min(index, m_expected.size()); ++m_next) differ(m_expected[m_next].bytes, {});
}

void HostComparison::differ(const std::string& expected, const std::string& found) {
  ++m_differences;
  size_t offset = 0;
  if (m_next < m_expected.size())
    offset = m_expected[m_next].offset;
  else if (!m_expected.empty())
    offset = m_expected.back().offset + m_expected.back().bytes.size();
  const auto same = static_cast<size_t>(std::ranges::mismatch(expected, found).in1 - expected.begin());
  m_on_difference({offset + same, expected, found});
}

std::string text_of(const HostComparison::Difference& difference) {
  return "at byte " + std::to_string(difference.offset) + ": expected " + shown(difference.expected) +
         ", found " + shown(difference.found);
}

}  // namespace ecu::koru::sim
