#include "sim/replay/SentComparison.h"

#include <algorithm>
#include <limits>

#include "wire/HexDump.h"

namespace ecu::koru::sim {

namespace {

constexpr int64_t PATIENCE_US = 250'000;
constexpr const char* NOTHING = "nothing sent";

std::string shown(const std::string& bytes) {
  std::string text =
      gpspub::hexText(reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<int>(bytes.size()));
  text.pop_back();  // the blank after the last byte
  return text;
}

}  // namespace

void SentComparison::settle(int64_t now_us) {
  constexpr int64_t FAR = std::numeric_limits<int64_t>::max();
  for (;;) {
    match();
    const int64_t expected_us = m_expected.empty() ? FAR : m_expected.front().at_us;
    const int64_t found_us = m_found.empty() ? FAR : m_found.front().at_us;
    const int64_t oldest_us = std::min(expected_us, found_us);
    if (oldest_us == FAR || now_us - oldest_us < PATIENCE_US) return;
    if (found_us - oldest_us >= PATIENCE_US || position(m_expected, m_found.front()) < m_expected.size()) {
      drop_expected();
    } else if (expected_us - oldest_us >= PATIENCE_US ||
               position(m_found, m_expected.front()) < m_found.size()) {
      drop_found();
    } else {
      m_differences.add(expected_us, shown(m_expected.front().bytes), shown(m_found.front().bytes));
      m_expected.pop_front();
      m_found.pop_front();
    }
  }
}

void SentComparison::finish() {
  settle(std::numeric_limits<int64_t>::max() / 2);
}

void SentComparison::match() {
  while (!m_expected.empty() && !m_found.empty() && m_expected.front().bytes == m_found.front().bytes) {
    m_expected.pop_front();
    m_found.pop_front();
  }
}

size_t SentComparison::position(const Messages& messages, const Message& wanted) {
  return static_cast<size_t>(std::ranges::find(messages, wanted.bytes, &Message::bytes) - messages.begin());
}

void SentComparison::drop_expected() {
  m_differences.add(m_expected.front().at_us, shown(m_expected.front().bytes), NOTHING);
  m_expected.pop_front();
}

void SentComparison::drop_found() {
  if (m_found.front().at_us <= m_last_us - PATIENCE_US)
    m_differences.add(m_found.front().at_us, NOTHING, shown(m_found.front().bytes));
  m_found.pop_front();
}

}  // namespace ecu::koru::sim
