#include "tools/tap/Histogram.h"

#include <algorithm>
#include <bit>
#include <cmath>

namespace ecu::koru::tap {

uint64_t nearest_rank(uint64_t count, double share) {
  constexpr double ROUNDING = 1e-9;  // 0.95 * 20 must be rank 19, not 20
  const double rank = std::ceil(static_cast<double>(count) * share * (1 - ROUNDING));
  return std::clamp<uint64_t>(static_cast<uint64_t>(rank), 1, std::max<uint64_t>(count, 1));
}

/// Above the first 64 values, the class consists of the number of the doubling and the six bits that follow
/// the value's leading one.
size_t Histogram::class_of(uint64_t value) {
  if (value < CLASSES_PER_DOUBLING) return static_cast<size_t>(value);
  const auto doubling = static_cast<size_t>(std::bit_width(value / CLASSES_PER_DOUBLING)) - 1;
  if (doubling >= DOUBLINGS) return CLASSES - 1;
  return (doubling + 1) * CLASSES_PER_DOUBLING +
         static_cast<size_t>((value >> doubling) - CLASSES_PER_DOUBLING);
}

double Histogram::middle_of(size_t index) {
  if (index < CLASSES_PER_DOUBLING) return static_cast<double>(index);
  const size_t doubling = index / CLASSES_PER_DOUBLING - 1;
  const uint64_t first = uint64_t{CLASSES_PER_DOUBLING + index % CLASSES_PER_DOUBLING} << doubling;
  const uint64_t width = uint64_t{1} << doubling;
  return static_cast<double>(first) + static_cast<double>(width - 1) / 2;
}

void Histogram::add(uint64_t value) {
  ++m_counts[class_of(value)];
  ++m_count;
  m_sum += value;
  m_largest = std::max(m_largest, value);
}

std::optional<double> Histogram::percentile(double share) const {
  if (m_count == 0) return std::nullopt;
  uint64_t left = nearest_rank(m_count, share);
  size_t index = 0;
  while (m_counts[index] < left) left -= m_counts[index++];
  return std::min(middle_of(index), static_cast<double>(m_largest));
}

}  // namespace ecu::koru::tap
