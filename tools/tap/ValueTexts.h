#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>

#include "platform/rt/DbcScanner.h"
#include "platform/rt/Signals.h"

namespace ecu::koru::tap {

/// The texts of raw values, "3D" for 2, from the value tables (VAL_) of a signal database. The service needs
/// none, so its own reader skips them. Set up before other threads start; any thread may then read it.
class ValueTexts {
 public:
  ValueTexts() = default;
  /// Reads the text of a DBC file, which may be any bytes. Keeps of a malformed table what comes before the
  /// mistake.
  explicit ValueTexts(std::string_view dbc);

  /// Those of the signal database in use: of the built-in one until use() names another.
  [[nodiscard]] static const ValueTexts& in_use();
  /// Takes the tables of a DBC file from now on; an empty name leaves the built-in ones. A file that cannot
  /// be read has no tables.
  static void use(const std::string& file);

  /// Returns the text of the signal's present value; empty if its table has none or it is not valid.
  [[nodiscard]] std::string_view find(const rt::SignalGroup& group, const rt::Signal& signal) const;

 private:
  using Table = std::unordered_map<uint64_t, std::string>;
  void read_table(rt::DbcScanner& in);

  std::unordered_map<std::string, Table> m_tables;  // by key_of() the signal
};

}  // namespace ecu::koru::tap
