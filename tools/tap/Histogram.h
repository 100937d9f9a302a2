#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace ecu::koru::tap {

/// Counts values in classes of fixed size, for percentiles in bounded memory (17 KiB) over any time. Values
/// below 64 have a class each; above, every doubling has 64 classes, so that a percentile is at most 0.8 %
/// off. For one thread.
class Histogram {
 public:
  void add(uint64_t value);

  [[nodiscard]] uint64_t count() const { return m_count; }
  [[nodiscard]] uint64_t sum() const { return m_sum; }
  [[nodiscard]] uint64_t largest() const { return m_largest; }
  /// Returns the smallest value that at least this share of all values does not exceed, 0 < share <= 1: the
  /// middle of its class. Empty without values.
  [[nodiscard]] std::optional<double> percentile(double share) const;

 private:
  static constexpr size_t CLASSES_PER_DOUBLING = 64;
  static constexpr size_t DOUBLINGS = 32;  // the last class begins at 2^38
  static constexpr size_t CLASSES = CLASSES_PER_DOUBLING * (DOUBLINGS + 1);

  static size_t class_of(uint64_t value);
  static double middle_of(size_t index);

  std::array<uint64_t, CLASSES> m_counts{};
  uint64_t m_count = 0;
  uint64_t m_sum = 0;
  uint64_t m_largest = 0;
};

/// Returns the rank, from 1, of the value that at least this share of `count` values does not exceed.
[[nodiscard]] uint64_t nearest_rank(uint64_t count, double share);

}  // namespace ecu::koru::tap
