#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "platform/rt/SignalDatabase.h"

/// Reads a signal database from a DBC file.
///
/// Messages with the text attribute "TxTopic" or "RxTopic" become groups; all others are ignored, whatever
/// they hold. A group's signals are unsigned whole numbers, little-endian and always present. Big-endian,
/// signed, multiplexed and floating-point signals are refused, and so is a layout that does not fit. The
/// locale does not matter.
namespace ecu::koru::rt {

inline constexpr size_t MAX_DBC_SIZE = 1 << 20;  ///< bytes

/// Why a file cannot be used.
struct DbcError {
  std::string file;
  unsigned line = 0;  ///< from 1; 0: the file as a whole
  std::string reason;

  /// Returns "FILE line N: REASON", made safe for a log record.
  [[nodiscard]] std::string text() const;
};

struct DbcResult {
  std::shared_ptr<const SignalDatabase> database;  ///< null on failure
  DbcError error;
};

/// Parses a DBC text, which may be any bytes. `file_name` is for the error only. Never throws.
[[nodiscard]] DbcResult parse_dbc(std::string_view text, std::string_view file_name) noexcept;

/// Does the same with a regular file of up to MAX_DBC_SIZE. Never throws.
[[nodiscard]] DbcResult load_dbc(const std::string& path) noexcept;

}  // namespace ecu::koru::rt
