#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace ecu::koru::logging {

/// Bounds what one statement writes, so that nobody outside can fill the log: 50 records in 10 s, which begin
/// with the first of them. Has no clock; one thread at a time.
class RecordLimiter {
 public:
  static constexpr uint64_t MAX_RECORDS = 50;
  static constexpr int64_t PERIOD_NS = 10'000'000'000;

  /// The address of a file's name, and a line.
  using Statement = std::pair<const void*, unsigned>;

  /// What a statement kept back in a period that is over.
  struct KeptBack {
    int level;
    std::string_view module;
    uint64_t count;
    std::string last;  ///< text of the last one
  };

  /// True if the record may be written. `module` lives as long as the program.
  [[nodiscard]] bool admit(const Statement& statement, int level, std::string_view module,
                           std::string_view text, int64_t now_ns);
  /// The statements that kept something back and whose period is over; each is told once.
  [[nodiscard]] std::vector<KeptBack> ended(int64_t now_ns);
  /// True if there is a count that was not told yet.
  [[nodiscard]] bool keeps_back() const { return m_full > 0; }

 private:
  struct Period {
    int64_t begin_ns = 0;
    uint64_t records = 0;
    KeptBack kept{};
  };
  [[nodiscard]] static bool is_over(const Period& period, int64_t now_ns);

  std::map<Statement, Period> m_periods;  // as many as there are statements
  size_t m_full = 0;                      // periods that kept something back
};

}  // namespace ecu::koru::logging
