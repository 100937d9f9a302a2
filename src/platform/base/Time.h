#pragma once

#include <sys/time.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <limits>
#include <mutex>

namespace ecu::koru {

class WakeUp;

/// A time that does not come, for what is not due.
inline constexpr int64_t NEVER = std::numeric_limits<int64_t>::max();

/// The seam to every clock and to sleeping. All times are 64-bit nanoseconds on every target.
class ITimeSource {
 public:
  virtual ~ITimeSource() = default;
  /// Returns CLOCK_MONOTONIC, ns.
  [[nodiscard]] virtual int64_t steady_ns() const = 0;
  /// Returns the time since boot, suspend included (CLOCK_BOOTTIME), ns.
  [[nodiscard]] virtual int64_t boot_ns() const = 0;
  /// Sleeps for at most `ns`; a signal may end it early. Returns at once for 0 or less.
  virtual void sleep_ns(int64_t ns) = 0;
  /// Waits for the condition for at most `ns`; may return early without it. `lock` is held before and after.
  virtual void wait_ns(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
                       int64_t ns) = 0;
  /// Waits for `wake` and clears it, for at most `ns`; a signal may end it early. Returns true if woken.
  virtual bool wait_ns(WakeUp& wake, int64_t ns) = 0;
  /// Returns the system clock (gettimeofday), UTC.
  [[nodiscard]] virtual timeval wall() const = 0;
  /// Returns the system clock (CLOCK_REALTIME), UTC, ns since 1970.
  [[nodiscard]] virtual int64_t wall_ns() const = 0;
  /// Sets the system clock (settimeofday). Returns false, with the reason in errno, if that is refused.
  [[nodiscard]] virtual bool set_wall(const timeval& now) = 0;
};

/// The test version: time stands still until it is moved, and sleeping moves it. Several threads may read it;
/// one thread at a time may move it.
class VirtualTime final : public ITimeSource {
 public:
  /// Starts at `boot_ns` since boot; the system clock starts at `wall_us` microseconds since 1970.
  explicit VirtualTime(int64_t boot_ns = 1'000'000'000'000, int64_t wall_us = 0)
      : m_now_ns(boot_ns), m_wall_offset_us(wall_us - boot_ns / 1000) {}
  [[nodiscard]] int64_t steady_ns() const override { return m_now_ns.load(); }
  [[nodiscard]] int64_t boot_ns() const override { return m_now_ns.load(); }
  void sleep_ns(int64_t ns) override { advance(ns); }
  /// Releases the lock while it sleeps, as a real wait does.
  void wait_ns(std::condition_variable& condition, std::unique_lock<std::mutex>& lock, int64_t ns) override;
  bool wait_ns(WakeUp& wake, int64_t ns) override;
  [[nodiscard]] timeval wall() const override;
  [[nodiscard]] int64_t wall_ns() const override { return m_now_ns.load() + m_wall_offset_us.load() * 1000; }
  [[nodiscard]] bool set_wall(const timeval& now) override;

  void advance(int64_t ns);
  /// While set, set_wall() fails with EPERM.
  void refuse_set_wall(bool refuse) { m_refuse = refuse; }
  /// Returns how often set_wall() was called, refusals included.
  [[nodiscard]] int set_wall_calls() const { return m_set_calls; }

 private:
  std::atomic<int64_t> m_now_ns;
  std::atomic<int64_t> m_wall_offset_us;  // system clock minus steady clock
  bool m_refuse = false;
  int m_set_calls = 0;
};

/// Returns the clocks of this process: the operating system's unless a test has replaced them.
[[nodiscard]] ITimeSource& time_source();
/// Replaces the clocks; nullptr restores the operating system's. Call it before any thread reads a clock.
/// `source` is not owned.
void set_time_source(ITimeSource* source);

/// Returns the steady clock of this process.
[[nodiscard]] inline std::chrono::nanoseconds steady_now() {
  return std::chrono::nanoseconds(time_source().steady_ns());
}

/// Waits for `done` for at most `limit` and returns whether it came true. `lock` is held while `done` is
/// called.
template <class Done>
bool wait_for(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
              std::chrono::nanoseconds limit, Done done) {
  const auto end = steady_now() + limit;
  for (bool came = done();; came = done()) {
    const auto left = end - steady_now();
    if (came || left.count() <= 0) return came;
    time_source().wait_ns(condition, lock, left.count());
  }
}

class DateTime {
 public:
  /// Returns the nanoseconds since boot (CLOCK_BOOTTIME).
  [[nodiscard]] static uint64_t time_since_boot_ns() {
    return static_cast<uint64_t>(time_source().boot_ns());
  }
};

}  // namespace ecu::koru
