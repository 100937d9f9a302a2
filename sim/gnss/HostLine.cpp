#include "sim/gnss/HostLine.h"

#include <algorithm>

namespace ecu::koru::sim {

void HostLine::write(std::span<const uint8_t> bytes, int64_t now_ns, unsigned baud) {
  if (baud == 0) return;
  for (const uint8_t byte : bytes.first(std::min(bytes.size(), CAPACITY - m_bytes.size())))
    m_bytes.push_back({m_bytes.empty() ? now_ns : std::max(now_ns, m_bytes.back().end_ns()), baud, byte});
}

int64_t HostLine::next_ns() const {
  return m_bytes.empty() ? INT64_MAX : m_bytes.front().end_ns();
}

void HostLine::take(int64_t until_ns, unsigned own_baud, std::string& out) {
  for (; next_ns() <= until_ns; m_bytes.pop_front()) hear(m_bytes.front(), own_baud, out);
}

void HostLine::hear(const Byte& byte, unsigned own_baud, std::string& out) {
  if (byte.baud == own_baud) {
    m_mistuned.reset();
    out.push_back(static_cast<char>(byte.value));
    return;
  }
  if (!m_mistuned || m_mistuned_baud != byte.baud || m_own_baud != own_baud)
    m_mistuned.emplace(byte.baud, own_baud);
  m_mistuned_baud = byte.baud;
  m_own_baud = own_baud;
  m_mistuned->byte(byte.start_ns, byte.value, out);
}

}  // namespace ecu::koru::sim
