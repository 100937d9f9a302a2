#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/tap/Histogram.h"
#include "tools/tap/Recording.h"
#include "tools/tap/Scatter.h"

namespace ecu::koru::tap {

/// Returns the words for a status: "valid", "warning", "nothing known", else "without a status".
[[nodiscard]] std::string_view status_text(int32_t status);

/// The statistics' view of a pb::GnssData.
struct FixSample {
  int64_t wall_us = 0;      ///< arrival, since 1970
  uint64_t arrival_ns = 0;  ///< the same since boot
  uint64_t sent_ns = 0;     ///< the envelope's time stamp
  int32_t status = 0;       ///< 3 valid, 2 warning, 1 nothing known; 0 if absent
  std::optional<Position> position;
  std::optional<uint64_t> utc_us;
};

/// A time without valid fixes.
struct Gap {
  int64_t wall_us = 0;  ///< of the fix before it
  uint64_t length_ns = 0;
  bool open = false;  ///< no fix came after it
};

/// The signal groups that go out with every fix that leaves on the vehicle's buses.
enum class FixGroup : size_t { VP1, VP2, VDS, TD, P2C1 };
inline constexpr std::array<const char*, 5> FIX_GROUP_NAMES = {"VP1", "VP2", "VDS", "TD", "P2C1"};

/// What the messages so far amount to.
struct Figures {
  static constexpr size_t STATUSES = 4;

  Moment beginning;
  uint64_t length_ns = 0;         ///< from the beginning to now
  uint64_t messages = 0;          ///< all, including those below
  uint64_t undecodable = 0;       ///< messages of a known topic that could not be decoded
  uint64_t unknown = 0;           ///< messages of a topic for which no message type is known
  std::string first_undecodable;  ///< its topic and reason; empty if there was none

  uint64_t fixes = 0;                       ///< positions of any status
  std::array<uint64_t, STATUSES> status{};  ///< of these, by status; at 0 those without a known one
  std::optional<double> fixes_per_s;        ///< valid ones, from the first to the last
  std::optional<uint64_t> first_fix_ns;     ///< from the beginning to the first valid one
  uint64_t gaps = 0;                        ///< including one that is still open
  uint64_t gap_ns = 0;                      ///< all gaps together
  uint64_t longest_gap_ns = 0;
  std::vector<Gap> first_gaps;  ///< at most Statistics::MAX_GAPS

  uint64_t delays = 0;          ///< fixes whose delay is known
  uint64_t delays_unknown = 0;  ///< fixes without a time stamp, or with one of another clock: delay_ns()
  double delay_sum_s = 0;
  std::optional<double> delay_median_s;
  std::optional<double> delay_99_s;
  std::optional<double> delay_largest_s;

  uint64_t positions = 0;             ///< valid fixes with a position
  std::optional<Position> reference;  ///< the given point, else the mean of the positions
  bool reference_given = false;
  std::optional<double> cep50_m;
  std::optional<double> cep95_m;

  struct Group {
    uint64_t count = 0;
    uint64_t missed = 0;
    double per_second = 0;
  };
  std::array<Group, FIX_GROUP_NAMES.size()> groups;
  uint64_t groups_due = 0;  ///< fixes that leave on the buses, but for the newest one
  /// Returns true if any group came at all.
  [[nodiscard]] bool has_groups() const;
};

/// Adds up what comes over the bus, in about 150 KiB however long that takes. For one thread; has no clock of
/// its own.
class Statistics {
 public:
  static constexpr uint64_t GAP_NS = 1'500'000'000;  ///< a longer time between valid fixes is a gap
  static constexpr size_t MAX_GAPS = 100;

  /// `reference`: the true position, if it is known.
  explicit Statistics(std::optional<Position> reference = std::nullopt) : m_reference(reference) {}

  /// Call it before the first message.
  void begin(const Moment& beginning);
  void count_message() { ++m_figures.messages; }
  void count_unknown() { ++m_figures.unknown; }
  void count_undecodable(const std::string& what);
  void take(const FixSample& fix);
  void take(FixGroup group);

  /// Returns the figures up to a time since boot.
  [[nodiscard]] Figures figures(uint64_t now_ns) const;

 private:
  void count_gap(const Gap& gap, Figures& out) const;
  void count_delay(const FixSample& fix);
  void take_valid(const FixSample& fix);
  [[nodiscard]] bool is_due_on_can(const FixSample& fix) const;
  void judge_groups();

  const std::optional<Position> m_reference;
  Figures m_figures;  // without the parts that figures() works out
  Histogram m_delays_us;
  Scatter m_scatter;
  std::optional<FixSample> m_first_valid;
  std::optional<FixSample> m_last_valid;
  uint64_t m_valid = 0;

  std::optional<FixSample> m_last_due;                // the newest fix that leaves on the buses
  std::array<bool, FIX_GROUP_NAMES.size()> m_seen{};  // the groups since then
};

}  // namespace ecu::koru::tap
