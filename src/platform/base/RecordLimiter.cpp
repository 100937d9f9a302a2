#include "platform/base/RecordLimiter.h"

namespace ecu::koru::logging {

/// Only a test's clock goes back, when a new test begins.
bool RecordLimiter::is_over(const Period& period, int64_t now_ns) {
  return period.records == 0 || now_ns < period.begin_ns || now_ns - period.begin_ns >= PERIOD_NS;
}

bool RecordLimiter::admit(const Statement& statement, int level, std::string_view module,
                          std::string_view text, int64_t now_ns) {
  Period& period = m_periods[statement];
  if (period.kept.count == 0 && is_over(period, now_ns)) period = {now_ns, 0, {}};
  if (++period.records <= MAX_RECORDS) return true;
  if (period.kept.count == 0) ++m_full;
  period.kept = {level, module, period.kept.count + 1, std::string(text)};
  return false;
}

std::vector<RecordLimiter::KeptBack> RecordLimiter::ended(int64_t now_ns) {
  std::vector<KeptBack> ended;
  if (m_full == 0) return ended;
  for (auto& [statement, period] : m_periods) {
    if (period.kept.count == 0 || !is_over(period, now_ns)) continue;
    ended.push_back(std::move(period.kept));
    period = {};
    --m_full;
  }
  return ended;
}

}  // namespace ecu::koru::logging
