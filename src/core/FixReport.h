#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include "core/FixState.h"

namespace ecu::koru::gpspub {

/// Decides which of the states that the facts make are reported: those that last 2 s, and GNSS_OFF at once.
/// The log gets each of them at most once a minute. State only: no I/O and no clock. Times are us of one
/// clock.
class FixReport {
 public:
  struct Record {
    logging::Level level;
    std::string text;
  };

  /// The service begins.
  explicit FixReport(int64_t now_us) : m_lost_us(now_us) { begin(now_us); }
  /// A mode begins: the state is STARTING again.
  void begin(int64_t now_us);

  /// Takes the present facts. Call it at least once a second while the facts may change, and at due().
  /// Returns the record that is to be logged now, if any.
  [[nodiscard]] std::optional<Record> update(const FixFacts& facts, int64_t now_us);
  /// Returns when update() is to be called even if no fact changes, or NEVER.
  [[nodiscard]] int64_t due() const;

  [[nodiscard]] FixState state() const { return m_state; }
  /// Returns the state's reason, in one line.
  [[nodiscard]] const std::string& reason() const { return m_reason; }
  /// Returns the time of the last valid fix; empty before the first.
  [[nodiscard]] std::optional<int64_t> lastValid() const;

 private:
  static constexpr size_t RETURN = pb::GnssHealth::State_ARRAYSIZE;
  void find(FixState found, int64_t now_us);
  void enter(const FixFacts& facts, int64_t now_us);
  void setReason(const FixFacts& facts, int64_t now_us);
  [[nodiscard]] bool mayChangeText(int64_t now_us) const;
  [[nodiscard]] int64_t stateDue() const;
  [[nodiscard]] int64_t recordDue() const;
  [[nodiscard]] size_t recordKind() const;

  FixState m_state = pb::GnssHealth::STARTING;
  std::string m_reason;
  int64_t m_text_us = 0;                                       // when m_reason was made
  bool m_is_logged = true;                                     // the present state
  std::array<std::optional<int64_t>, RETURN + 1> m_logged_us;  // when each record was
  ValidChange m_change = ValidChange::FIRST;                   // how the last valid state began
  bool m_has_reported_valid = false;

  FixState m_found = pb::GnssHealth::STARTING;  // by the last update()
  int64_t m_found_since_us = 0;
  int64_t m_begin_us = 0;           // of the mode
  int64_t m_last_valid_us = NEVER;  // NEVER: none yet
  int64_t m_valid_since_us = 0;     // the first of the valid fixes that belong together
  bool m_has_run = false;           // of valid fixes
  int64_t m_lost_us;                // the last valid fix before the present ones, or the start
};

}  // namespace ecu::koru::gpspub
