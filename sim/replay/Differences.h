#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace ecu::koru::sim {

/// Counts where the service does something else than it did when the link was recorded, and reports the first
/// ones. Times are us since the service began.
class Differences {
 public:
  static constexpr uint64_t MAX_REPORTED = 50;
  /// `report` gets the time and one line of text without line feed.
  using Report = std::function<void(int64_t at_us, const std::string& text)>;
  explicit Differences(Report report) : m_report(std::move(report)) {}

  void add(int64_t at_us, const std::string& expected, const std::string& found) {
    if (m_count++ < MAX_REPORTED) m_report(at_us, "expected " + expected + ", found " + found);
  }
  [[nodiscard]] uint64_t count() const { return m_count; }

 private:
  const Report m_report;
  uint64_t m_count = 0;
};

}  // namespace ecu::koru::sim
