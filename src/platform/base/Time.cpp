#include "platform/base/Time.h"

#include <sys/select.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <ctime>

#include "platform/base/WakeUp.h"

namespace ecu::koru {

namespace {

static_assert(sizeof(time_t) == 8, "dates do not end in 2038, on no target");

constexpr int64_t NS_PER_S = 1'000'000'000;
constexpr int64_t US_PER_S = 1'000'000;
constexpr int64_t NS_PER_US = 1000;

timeval to_timeval(int64_t us) {
  timeval time{};
  time.tv_sec = static_cast<time_t>(us / US_PER_S);
  time.tv_usec = static_cast<suseconds_t>(us % US_PER_S);
  return time;
}

int64_t read_clock(clockid_t id) {
  timespec now{};
  clock_gettime(id, &now);
  return static_cast<int64_t>(now.tv_sec) * NS_PER_S + now.tv_nsec;
}

class SystemTime final : public ITimeSource {
 public:
  [[nodiscard]] int64_t steady_ns() const override { return read_clock(CLOCK_MONOTONIC); }
  [[nodiscard]] int64_t boot_ns() const override { return read_clock(CLOCK_BOOTTIME); }
  void sleep_ns(int64_t ns) override {
    if (ns <= 0) return;
    timespec wait{};
    wait.tv_sec = static_cast<time_t>(ns / NS_PER_S);
    wait.tv_nsec = static_cast<long>(ns % NS_PER_S);
    nanosleep(&wait, nullptr);
  }
  void wait_ns(std::condition_variable& condition, std::unique_lock<std::mutex>& lock, int64_t ns) override {
    condition.wait_for(lock, std::chrono::nanoseconds(ns));
  }
  /// Calls select(): with 64-bit times on a 32-bit target, glibc 2.36 hands a checked ppoll() to the system
  /// call that takes 32-bit times, and no wait is longer than 0 s.
  bool wait_ns(WakeUp& wake, int64_t ns) override {
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(wake.fd(), &readable);
    timeval wait = to_timeval((std::max<int64_t>(ns, 0) + NS_PER_US - 1) / NS_PER_US);
    if (select(wake.fd() + 1, &readable, nullptr, nullptr, &wait) != 1) return false;
    wake.clear();
    return true;
  }
  [[nodiscard]] timeval wall() const override {
    timeval now{};
    gettimeofday(&now, nullptr);
    return now;
  }
  [[nodiscard]] int64_t wall_ns() const override { return read_clock(CLOCK_REALTIME); }
  [[nodiscard]] bool set_wall(const timeval& now) override { return settimeofday(&now, nullptr) == 0; }
};

constinit SystemTime g_system_time;
constinit std::atomic<ITimeSource*> g_source{&g_system_time};

}  // namespace

timeval VirtualTime::wall() const {
  return to_timeval(m_now_ns.load() / NS_PER_US + m_wall_offset_us.load());
}

bool VirtualTime::set_wall(const timeval& now) {
  ++m_set_calls;
  if (m_refuse) {
    errno = EPERM;
    return false;
  }
  m_wall_offset_us = static_cast<int64_t>(now.tv_sec) * US_PER_S + now.tv_usec - m_now_ns.load() / 1000;
  return true;
}

void VirtualTime::wait_ns(std::condition_variable& /*condition*/, std::unique_lock<std::mutex>& lock,
                          int64_t ns) {
  lock.unlock();
  sleep_ns(ns);
  lock.lock();
}

bool VirtualTime::wait_ns(WakeUp& wake, int64_t ns) {
  if (!wake.pending()) {
    sleep_ns(ns);
    return false;
  }
  wake.clear();
  return true;
}

void VirtualTime::advance(int64_t ns) {
  if (ns > 0) m_now_ns.fetch_add(ns);
}

ITimeSource& time_source() {
  return *g_source.load(std::memory_order_relaxed);
}

void set_time_source(ITimeSource* source) {
  g_source = source != nullptr ? source : &g_system_time;
}

}  // namespace ecu::koru
