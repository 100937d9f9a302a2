#pragma once

#include <cstdint>
#include <functional>
#include <map>

#include "platform/base/Time.h"

namespace ecu::koru::sim {

/// Virtual time with an agenda: whenever the clock moves, the actions that become due are carried out on the
/// thread that moves it. One thread at a time. Times in us count from the start.
class AgendaTime : public ITimeSource {
 public:
  /// Starts at `start_ns` of the steady clock; the system clock starts at `wall_us` since 1970.
  AgendaTime(int64_t start_ns, int64_t wall_us) : m_start_ns(start_ns), m_clock(start_ns, wall_us) {}

  [[nodiscard]] int64_t steady_ns() const override { return m_clock.steady_ns(); }
  [[nodiscard]] int64_t boot_ns() const override { return m_clock.boot_ns() + boot_offset_ns; }
  void sleep_ns(int64_t ns) override { advance_to_ns(steady_ns() + ns); }
  /// Ends at the next point of the agenda, which may be the awaited event.
  void wait_ns(std::condition_variable& condition, std::unique_lock<std::mutex>& lock, int64_t ns) override;
  bool wait_ns(WakeUp& wake, int64_t ns) override;
  [[nodiscard]] timeval wall() const override { return m_clock.wall(); }
  [[nodiscard]] int64_t wall_ns() const override { return m_clock.wall_ns(); }
  [[nodiscard]] bool set_wall(const timeval& now) override { return m_clock.set_wall(now); }

  [[nodiscard]] int64_t now_us() const { return (steady_ns() - m_start_ns) / 1000; }
  void at(int64_t us, std::function<void()> action) { m_agenda.emplace(us, std::move(action)); }
  /// Carries out the points of the agenda on the way.
  void advance_to_us(int64_t us) { advance_to_ns(ns_at(us)); }
  /// Stops at the next point of the agenda.
  void step_towards_us(int64_t us);
  [[nodiscard]] VirtualTime& clock() { return m_clock; }

  long waits = 0;              ///< for a wake-up, of the service without an open device
  int64_t boot_offset_ns = 0;  ///< by how much the time since boot exceeds the steady clock

 private:
  [[nodiscard]] int64_t ns_at(int64_t us) const { return m_start_ns + us * 1000; }
  void advance_to_ns(int64_t ns);

  const int64_t m_start_ns;
  VirtualTime m_clock;
  std::multimap<int64_t, std::function<void()>> m_agenda;  // by us since the start
};

}  // namespace ecu::koru::sim
