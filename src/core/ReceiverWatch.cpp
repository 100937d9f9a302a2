#include "core/ReceiverWatch.h"

#include <utility>

namespace ecu::koru::gpspub {

namespace {
constexpr int64_t MUTE_US = 20'000'000;  // a start, and a change of rate, take less
}  // namespace

void ReceiverWatch::begins(int64_t now_us, const Reception& totals, uint64_t naks) {
  closed(CloseReason::MODE_ENDS, now_us, naks);
  m_facts = {.source = FixFacts::Source::RECEIVER};
  m_begin_us = m_last_byte_us = now_us;
  m_reception.begin(now_us, totals);
}

void ReceiverWatch::opened(int error) {
  m_facts.open_error = error;
  m_opens += error == 0 ? 1 : 0;
}

/// The receiver is asked anew, except that a port whose rate is set again and again is asked since the first
/// time.
void ReceiverWatch::closed(CloseReason reason, int64_t now_us, uint64_t naks) {
  using enum CloseReason;
  m_facts.reopens |= reason == SILENT;
  m_facts.went_away |= reason == DEVICE_GONE;
  if (reason == WAKING) m_last_byte_us = now_us;  // its silence was wanted
  const bool goes_on = reason == CHANGING_RATE || reason == NEXT_RATE;
  m_rates_tried = reason == NEXT_RATE ? m_rates_tried + 1 : goes_on ? m_rates_tried : 0;
  if (reason == CHANGING_RATE && std::exchange(m_has_changed_rate, true)) return;
  if (!goes_on) m_has_changed_rate = false;
  m_asked_since_us = now_us;
  m_naks_before = naks;
}

void ReceiverWatch::received(uint64_t bytes, int64_t now_us) {
  if (std::exchange(m_bytes, bytes) == bytes) return;
  m_last_byte_us = now_us;
  m_facts.reopens = m_facts.went_away = false;
}

void ReceiverWatch::published(const GnssInfo& info, int64_t now_us, const Reception& totals) {
  m_facts.takePosition(info);
  m_reception.sample(now_us, totals);
  if (m_facts.status != FixFacts::VALID_STATUS) return;
  ++m_fixes;
  m_last_valid_us = now_us;
}

FixFacts ReceiverWatch::facts(int64_t now_us, bool is_asked, uint64_t naks) const {
  FixFacts facts = m_facts;
  facts.silent_us = now_us - m_last_byte_us;
  facts.ever_heard = m_last_byte_us > m_begin_us;
  facts.is_mute = is_asked && now_us - m_asked_since_us >= MUTE_US;
  facts.is_refusing = naks > m_naks_before;
  facts.rates_tried = m_rates_tried;
  facts.reception = m_reception.lastSecond();
  return facts;
}

}  // namespace ecu::koru::gpspub
