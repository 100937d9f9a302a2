#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace ecu::koru::logging {

/// Limits each statement to 50 records in 10 s, so that nobody outside can fill the log. The 10 s begin with
/// the first record. It has no clock; one thread at a time may use it.
class RecordLimiter {
 public:
  static constexpr uint64_t MAX_RECORDS = 50;
  static constexpr int64_t PERIOD_NS = 10'000'000'000;

  /// The address of a file's name, and a line.
  using Statement = std::pair<const void*, unsigned>;

  /// The records of one statement that were kept back in a period that is over.
  struct KeptBack {
    int level;
    std::string_view module;
    uint64_t count;
    std::string last;  ///< text of the last record
  };

  /// Returns true if the record may be written. `module` must live as long as the program.
  [[nodiscard]] bool admit(const Statement& statement, int level, std::string_view module,
                           std::string_view text, int64_t now_ns);
  /// Returns the records kept back in periods that are over; each is returned once.
  [[nodiscard]] std::vector<KeptBack> ended(int64_t now_ns);
  /// Returns true if ended() has not returned every count yet.
  [[nodiscard]] bool keeps_back() const { return m_full > 0; }

 private:
  struct Period {
    int64_t begin_ns = 0;
    uint64_t records = 0;
    KeptBack kept{};
  };
  [[nodiscard]] static bool is_over(const Period& period, int64_t now_ns);

  std::map<Statement, Period> m_periods;  // one per statement at most
  size_t m_full = 0;                      // periods with kept-back records
};

}  // namespace ecu::koru::logging
