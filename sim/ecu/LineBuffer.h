#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace ecu::koru::sim {

/// Cuts input that arrives in pieces into lines, in bounded memory.
class LineBuffer {
 public:
  static constexpr size_t MAX_LINE = 8 << 20;  // bytes; far more than any receiver accepts

  void add(std::string_view bytes) { m_bytes.append(bytes); }

  /// Returns the next whole line without its line feed; empty if there is none yet. After each add(),
  /// call it until it returns empty. Throws BadCommand once for each line that is too long, after its
  /// end has arrived.
  [[nodiscard]] std::optional<std::string> next();

 private:
  std::string m_bytes;
  bool m_too_long = false;  // the current line is too long; its beginning may be dropped already
};

}  // namespace ecu::koru::sim
