#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace ecu::koru::sim {

/// Cuts what comes in pieces into lines, in bounded memory.
class LineBuffer {
 public:
  static constexpr size_t MAX_LINE = 8 << 20;  // a raw payload far beyond what any receiver accepts

  void add(std::string_view bytes) { m_bytes.append(bytes); }

  /// The next whole line without its line feed; nothing when there is none yet. To be called until then after
  /// each add(). Throws BadCommand once for each line that is too long, when its end has come.
  [[nodiscard]] std::optional<std::string> next();

 private:
  std::string m_bytes;
  bool m_too_long = false;  // the present line is, and its beginning was dropped
};

}  // namespace ecu::koru::sim
