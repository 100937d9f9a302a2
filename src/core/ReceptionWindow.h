#pragma once

#include <cstdint>

#include "core/FixState.h"

namespace ecu::koru::gpspub {

/// Tells what came in the last full second from counts that only grow. State only. Times are us of one clock.
class ReceptionWindow {
 public:
  /// Starts the first second. `totals` are the counts so far.
  void begin(int64_t now_us, const Reception& totals) {
    m_begin_us = now_us;
    m_totals = totals;
    m_last = {};
  }
  /// Takes the counts so far. Call it about once a second or more often.
  void sample(int64_t now_us, const Reception& totals);
  /// Returns what came in the last second that is over; `bytes` is the rate, exact if it took longer.
  [[nodiscard]] const Reception& lastSecond() const { return m_last; }

 private:
  int64_t m_begin_us = 0;
  Reception m_totals;
  Reception m_last;
};

}  // namespace ecu::koru::gpspub
