#include "sim/ecu/LineBuffer.h"

#include "sim/ecu/Command.h"

namespace ecu::koru::sim {

std::optional<std::string> LineBuffer::next() {
  const auto end = m_bytes.find('\n');
  const bool complete = end != std::string::npos;
  m_too_long = m_too_long || (complete ? end : m_bytes.size()) > MAX_LINE;
  if (!complete) {
    if (m_too_long) m_bytes.clear();
    return std::nullopt;
  }
  std::string line = m_bytes.substr(0, end);
  m_bytes.erase(0, end + 1);
  if (!m_too_long) return line;
  m_too_long = false;
  throw BadCommand("line longer than 8 MiB ignored");
}

}  // namespace ecu::koru::sim
