#include "core/ReceptionWindow.h"

namespace ecu::koru::gpspub {

namespace {
constexpr int64_t SHORTEST_US = 900'000;  // a receiver's seconds vary a little
constexpr uint64_t US_PER_S = 1'000'000;
}  // namespace

void ReceptionWindow::sample(int64_t now_us, const Reception& totals) {
  const int64_t elapsed_us = now_us - m_begin_us;
  if (elapsed_us < SHORTEST_US) return;
  const auto elapsed = static_cast<uint64_t>(elapsed_us);
  m_last = {((totals.bytes - m_totals.bytes) * US_PER_S + elapsed - 1) / elapsed,  // 1 at least if any came
            totals.sentences - m_totals.sentences, totals.rejected - m_totals.rejected,
            totals.rmc - m_totals.rmc, totals.frames - m_totals.frames};
  m_begin_us = now_us;
  m_totals = totals;
}

}  // namespace ecu::koru::gpspub
