#pragma once

#include <cstdint>

#include "core/FixState.h"
#include "core/ReceptionWindow.h"
#include "ublox/IReceiverOwner.h"

namespace ecu::koru::gpspub {

/// Keeps what a report on the receiver needs to know of the past. State only. Times are us of one clock.
class ReceiverWatch {
 public:
  /// The mode begins. `totals` and `naks` are the counts so far.
  void begins(int64_t now_us, const Reception& totals, uint64_t naks);
  /// The device was opened, or `error` (errno) says why not.
  void opened(int error);
  /// The device was closed. `naks` counts the receiver's refusals so far.
  void closed(CloseReason reason, int64_t now_us, uint64_t naks);
  /// `bytes` have been received so far.
  void received(uint64_t bytes, int64_t now_us);
  /// A position is about to be published. `totals` are the counts so far.
  void published(const GnssInfo& info, int64_t now_us, const Reception& totals);

  /// Returns the facts of the past; the present ones are still to be set. `is_asked` says that the receiver
  /// has not confirmed its rate.
  [[nodiscard]] FixFacts facts(int64_t now_us, bool is_asked, uint64_t naks) const;
  /// Returns when the last valid position was published; 0 before the first.
  [[nodiscard]] int64_t lastValid() const { return m_last_valid_us; }
  /// Return how many valid positions were published, and how often the device was opened.
  [[nodiscard]] uint64_t fixes() const { return m_fixes; }
  [[nodiscard]] uint64_t opens() const { return m_opens; }

 private:
  FixFacts m_facts{.source = FixFacts::Source::RECEIVER};  // of the position published last
  ReceptionWindow m_reception;
  uint64_t m_fixes = 0;
  uint64_t m_opens = 0;
  uint64_t m_bytes = 0;
  int64_t m_begin_us = 0;
  int64_t m_last_byte_us = 0;
  int64_t m_last_valid_us = 0;

  // Since the receiver was lost or the mode began.
  int64_t m_asked_since_us = 0;
  uint64_t m_naks_before = 0;
  unsigned m_rates_tried = 0;
  bool m_has_changed_rate = false;
};

}  // namespace ecu::koru::gpspub
