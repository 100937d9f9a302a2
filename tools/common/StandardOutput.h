#pragma once

#include <atomic>
#include <string>
#include <string_view>

namespace ecu::koru::tool {

/// Standard output for a program whose reader wants each piece at once. One thread writes, and any may ask.
class StandardOutput {
 public:
  /// Returns false if it takes no more: it failed now or before.
  bool write(std::string_view text);
  /// Returns "cannot write: No space left on device"; empty if nothing failed, or if the reader went away.
  [[nodiscard]] std::string problem() const;

 private:
  std::atomic<int> m_error = 0;  // an errno
};

}  // namespace ecu::koru::tool
