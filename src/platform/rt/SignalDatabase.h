#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

/// Defines the signals of a group: where their bits lie and what their raw values mean. A definition never
/// changes once made, so any thread may read it.
namespace ecu::koru::rt {

enum class SignalStatus { VALID, NOT_AVAILABLE, ERROR, OUT_OF_RANGE };

enum class SignalCoding {
  J1939,       ///< the highest raw values mean error and not available
  EVERY_VALUE  ///< every raw value is valid
};

/// physical value = raw value * factor + offset.
///
/// A double only comes near to a decimal factor or offset such as "1E-7". Both are therefore kept as
/// whole numbers over one power of ten, which is exact, and the physical value is the double nearest to
/// the decimal result.
class SignalScale {
 public:
  SignalScale() = default;
  SignalScale(double factor, double offset);

  [[nodiscard]] double factor() const { return m_factor; }
  [[nodiscard]] double offset() const { return m_offset; }
  [[nodiscard]] double physical(uint64_t raw) const {
    return (static_cast<double>(raw) * m_factor_dividend + m_offset_dividend) / m_divisor;
  }
  /// Returns the nearest whole raw value; halves round away from 0. Not limited to any width; NaN gives NaN.
  [[nodiscard]] double nearest_raw(double physical) const;

 private:
  double m_factor = 1;
  double m_offset = 0;
  // Factor and offset as fractions of whole numbers; if that is not possible, themselves over 1.
  double m_factor_dividend = 1;
  double m_offset_dividend = 0;
  double m_divisor = 1;
};

/// One signal: an unsigned number of 1 to 64 bits, lowest bit first.
struct SignalDefinition {
  std::string name;
  std::string unit;
  unsigned start_bit = 0;  ///< 0 is the lowest bit of byte 0, 8 that of byte 1
  unsigned width = 0;      ///< bits
  SignalScale scale;
  SignalCoding coding = SignalCoding::J1939;

  [[nodiscard]] unsigned data_bytes() const { return (width + 7) / 8; }
  [[nodiscard]] uint64_t max_raw() const { return ~uint64_t{0} >> (64 - width); }
  [[nodiscard]] uint64_t max_valid_raw() const;
  [[nodiscard]] SignalStatus status(uint64_t raw) const;
};

/// One group: a CAN frame's data bytes.
struct GroupDefinition {
  static constexpr unsigned MAX_LENGTH = 64;  ///< bytes

  std::string name;
  uint32_t can_id = 0;  ///< 29 bits if extended, else 11
  bool extended = false;
  unsigned length = 0;     ///< bytes, 1 to MAX_LENGTH
  bool raw_bytes = false;  ///< one signal without a layout: any 1 to MAX_LENGTH bytes
  std::string tx_topic;    ///< empty: none
  std::string rx_topic;    ///< empty: none
  std::vector<SignalDefinition> signals;

  /// Returns null if there is no such signal.
  [[nodiscard]] const SignalDefinition* signal(std::string_view signal_name) const;
};

/// The groups of all topics.
class SignalDatabase {
 public:
  /// Topics must differ from each other.
  explicit SignalDatabase(std::vector<GroupDefinition> groups);
  SignalDatabase(const SignalDatabase&) = delete;
  SignalDatabase& operator=(const SignalDatabase&) = delete;

  /// Returns the group that has the topic in either direction, or null if none has.
  [[nodiscard]] const GroupDefinition* find(std::string_view topic) const;
  [[nodiscard]] const std::vector<GroupDefinition>& groups() const { return m_groups; }

 private:
  std::vector<GroupDefinition> m_groups;
  std::unordered_map<std::string_view, const GroupDefinition*> m_by_topic;
};

}  // namespace ecu::koru::rt
