#include "core/FixReport.h"

#include <algorithm>
#include <utility>

namespace ecu::koru::gpspub {

namespace {

constexpr int64_t LASTING_US = 2'000'000;
constexpr int64_t LOST_US = LASTING_US + 1'000'000;  // a valid fix holds until the next one is due
constexpr int64_t SAME_RECORD_US = 60'000'000;
constexpr int64_t NEW_TEXT_US = 10'000'000;

}  // namespace

void FixReport::begin(int64_t now_us) {
  m_state = m_found = pb::GnssHealth::STARTING;
  m_reason = "starting";
  m_is_logged = true;
  m_begin_us = now_us;
  m_has_run = false;
}

std::optional<FixReport::Record> FixReport::update(const FixFacts& facts, int64_t now_us) {
  find(judge(facts), now_us);
  if (m_found != m_state && now_us >= stateDue()) {
    enter(facts, now_us);
  } else if (m_found == m_state && mayChangeText(now_us)) {
    setReason(facts, now_us);
  }
  if (now_us < recordDue()) return std::nullopt;
  m_is_logged = true;
  m_logged_us[recordKind()] = now_us;
  return Record{levelOf(m_state), m_reason};
}

int64_t FixReport::due() const {
  return std::min(m_found != m_state ? stateDue() : NEVER, recordDue());
}

std::optional<int64_t> FixReport::lastValid() const {
  return m_last_valid_us != NEVER ? std::optional(m_last_valid_us) : std::nullopt;
}

/// Notes the present state. Valid fixes belong together unless there was none for so long that they count as
/// lost.
void FixReport::find(FixState found, int64_t now_us) {
  if (isValid(found)) {
    const bool belongs_to_last = m_has_run && now_us - m_last_valid_us < LOST_US;
    if (!belongs_to_last) m_valid_since_us = now_us;
    m_has_run = true;
    m_last_valid_us = now_us;
  }
  if (found != m_found) m_found_since_us = now_us;
  m_found = found;
}

void FixReport::enter(const FixFacts& facts, int64_t now_us) {
  const FixState before = std::exchange(m_state, m_found);
  if (isValid(m_state)) {
    m_change = before == pb::GnssHealth::UNCONFIRMED ? ValidChange::TRUSTED
               : m_has_reported_valid                ? ValidChange::AGAIN
                                                     : ValidChange::FIRST;
    m_has_reported_valid = true;
  } else {
    m_has_run = false;
    if (isValid(before)) m_lost_us = m_last_valid_us;
  }
  setReason(facts, now_us);
  m_is_logged = false;
}

void FixReport::setReason(const FixFacts& facts, int64_t now_us) {
  m_reason = reasonOf(m_state, facts, m_change, m_valid_since_us - m_lost_us);
  m_text_us = now_us;
}

/// The text of a state that goes on follows the facts: at once the rate that is tried, the rest not so often
/// that it disturbs. That of valid fixes says how they came, that of a silence how it began.
bool FixReport::mayChangeText(int64_t now_us) const {
  if (m_state == pb::GnssHealth::SEARCHING) return true;
  if (m_state == pb::GnssHealth::VALID || m_state == pb::GnssHealth::SILENT || !m_is_logged) return false;
  return m_state != pb::GnssHealth::STARTING && now_us - m_text_us >= NEW_TEXT_US;
}

/// Returns when the state found is to be reported.
int64_t FixReport::stateDue() const {
  if (m_found == pb::GnssHealth::STARTING) return NEVER;  // to be seen
  if (m_found == pb::GnssHealth::GNSS_OFF) return 0;
  const bool same_class = m_state != pb::GnssHealth::STARTING && isValid(m_state) == isValid(m_found);
  const int64_t found_due = same_class ? m_found_since_us + LASTING_US : 0;
  if (isValid(m_found)) return same_class ? found_due : m_valid_since_us + LASTING_US;
  const int64_t lost_due = m_last_valid_us != NEVER ? m_last_valid_us + LOST_US : 0;
  return std::max({found_due, lost_due, m_begin_us + LASTING_US});
}

/// Returns the index of the present state's record in m_logged_us. That valid fixes are back is not the same
/// record as that they are there.
size_t FixReport::recordKind() const {
  return isValid(m_state) && m_change != ValidChange::FIRST ? RETURN : static_cast<size_t>(m_state);
}

/// Returns when the state is to be logged, or NEVER if it has been.
int64_t FixReport::recordDue() const {
  if (m_is_logged) return NEVER;
  const auto& logged_us = m_logged_us[recordKind()];
  return logged_us ? *logged_us + SAME_RECORD_US : 0;
}

}  // namespace ecu::koru::gpspub
