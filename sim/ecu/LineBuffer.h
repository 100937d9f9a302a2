#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "sim/ecu/Command.h"

namespace ecu::koru::sim {

/// Cuts input that arrives in pieces into lines, in bounded memory.
class LineBuffer {
 public:
  void add(std::string_view bytes) { m_bytes.append(bytes); }

  /// Returns the next whole line without its line feed; empty if no line is complete. After each add(),
  /// call it until it returns empty. Throws BadCommand once for each line that is too long, after its
  /// end has arrived.
  [[nodiscard]] std::optional<std::string> next() {
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

 private:
  static constexpr size_t MAX_LINE = 8 << 20;  // bytes; far more than any receiver accepts

  std::string m_bytes;
  bool m_too_long = false;  // the current line is too long; its beginning may be dropped already
};

}  // namespace ecu::koru::sim
