#include "platform/rt/SignalDatabase.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace ecu::koru::rt {

namespace {

constexpr int MAX_DECIMAL_DIGITS = 17;               // a double holds no more
constexpr double MAX_EXACT = 9'007'199'254'740'992;  // 2^53: up to here a double holds each whole number
constexpr uint64_t ERROR_BYTE = 0xFE;                // the highest byte of a raw value that means error
constexpr uint64_t NOT_AVAILABLE_BYTE = 0xFF;
constexpr uint64_t FIRST_RESERVED_BYTE = 0xFB;

/// Finds the whole number that divided by `divisor` is exactly `value`. Returns false if no number does that.
bool is_over(double value, double divisor, double& dividend) {
  dividend = std::round(value * divisor);
  return std::abs(dividend) <= MAX_EXACT && dividend / divisor == value;
}

}  // namespace

SignalScale::SignalScale(double factor, double offset)
    : m_factor(factor), m_offset(offset), m_factor_dividend(factor), m_offset_dividend(offset) {
  double divisor = 1;
  for (int digits = 0; digits <= MAX_DECIMAL_DIGITS; ++digits) {
    double factor_dividend = 0;
    double offset_dividend = 0;
    if (is_over(factor, divisor, factor_dividend) && is_over(offset, divisor, offset_dividend)) {
      m_factor_dividend = factor_dividend;
      m_offset_dividend = offset_dividend;
      m_divisor = divisor;
      return;
    }
    divisor *= 10;
  }
}

double SignalScale::nearest_raw(double physical) const {
  return std::round((physical * m_divisor - m_offset_dividend) / m_factor_dividend);
}

uint64_t SignalDefinition::max_valid_raw() const {
  if (coding == SignalCoding::EVERY_VALUE || width == 1) return max_raw();
  if (width < 8) return max_raw() - 2;
  return (FIRST_RESERVED_BYTE << (width - 8)) - 1;
}

SignalStatus SignalDefinition::status(uint64_t raw) const {
  if (coding == SignalCoding::EVERY_VALUE || raw <= max_valid_raw()) return SignalStatus::VALID;
  if (width < 8) return raw == max_raw() ? SignalStatus::NOT_AVAILABLE : SignalStatus::ERROR;
  const uint64_t highest = raw >> (width - 8);
  if (highest == NOT_AVAILABLE_BYTE) return SignalStatus::NOT_AVAILABLE;
  return highest == ERROR_BYTE ? SignalStatus::ERROR : SignalStatus::OUT_OF_RANGE;
}

const SignalDefinition* GroupDefinition::signal(std::string_view signal_name) const {
  const auto found = std::ranges::find(signals, signal_name, &SignalDefinition::name);
  return found != signals.end() ? &*found : nullptr;
}

SignalDatabase::SignalDatabase(std::vector<GroupDefinition> groups) : m_groups(std::move(groups)) {
  for (const GroupDefinition& group : m_groups) {
    if (!group.tx_topic.empty()) m_by_topic.emplace(group.tx_topic, &group);
    if (!group.rx_topic.empty()) m_by_topic.emplace(group.rx_topic, &group);
  }
}

const GroupDefinition* SignalDatabase::find(std::string_view topic) const {
  const auto found = m_by_topic.find(topic);
  return found != m_by_topic.end() ? found->second : nullptr;
}

}  // namespace ecu::koru::rt
