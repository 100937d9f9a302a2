#include "sim/replay/AgendaTime.h"

#include <algorithm>

#include "platform/base/WakeUp.h"

namespace ecu::koru::sim {

void AgendaTime::wait_ns(std::condition_variable& /*condition*/, std::unique_lock<std::mutex>& lock,
                         int64_t ns) {
  const int64_t end = steady_ns() + ns;
  lock.unlock();
  advance_to_ns(m_agenda.empty() ? end : std::min(end, ns_at(m_agenda.begin()->first)));
  lock.lock();
}

bool AgendaTime::wait_ns(WakeUp& wake, int64_t ns) {
  ++waits;
  const int64_t end_us = now_us() + ns / 1000;
  while (!wake.pending() && now_us() < end_us) step_towards_us(end_us);
  const bool woken = wake.pending();
  if (woken) wake.clear();
  return woken;
}

void AgendaTime::step_towards_us(int64_t us) {
  advance_to_us(m_agenda.empty() ? us : std::min(us, std::max(m_agenda.begin()->first, now_us())));
}

void AgendaTime::advance_to_ns(int64_t ns) {
  while (!m_agenda.empty() && ns_at(m_agenda.begin()->first) <= ns) {
    auto due = m_agenda.extract(m_agenda.begin());
    m_clock.advance(std::max<int64_t>(0, ns_at(due.key()) - steady_ns()));
    due.mapped()();  // the action may itself let time pass
  }
  m_clock.advance(std::max<int64_t>(0, ns - steady_ns()));
}

}  // namespace ecu::koru::sim
