#include "platform/base/Time.h"

#include <poll.h>

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

timespec to_timespec(int64_t ns) {
  timespec time{};
  time.tv_sec = static_cast<time_t>(ns / NS_PER_S);
  time.tv_nsec = static_cast<long>(ns % NS_PER_S);
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
    const timespec wait = to_timespec(ns);
    nanosleep(&wait, nullptr);
  }
  void wait_ns(std::condition_variable& condition, std::unique_lock<std::mutex>& lock, int64_t ns) override {
    condition.wait_for(lock, std::chrono::nanoseconds(ns));
  }
  bool wait_ns(WakeUp& wake, int64_t ns) override {
    pollfd watched{wake.fd(), POLLIN, 0};
    const timespec wait = to_timespec(std::max<int64_t>(ns, 0));
    if (ppoll(&watched, 1, &wait, nullptr) != 1) return false;
    wake.clear();
    return true;
  }
  [[nodiscard]] timeval wall() const override {
    timeval now{};
    gettimeofday(&now, nullptr);
    return now;
  }
  [[nodiscard]] bool set_wall(const timeval& now) override { return settimeofday(&now, nullptr) == 0; }
};

constinit SystemTime g_system_time;
constinit std::atomic<ITimeSource*> g_source{&g_system_time};

}  // namespace

timeval VirtualTime::wall() const {
  const int64_t us = m_now_ns.load() / 1000 + m_wall_offset_us.load();
  timeval now{};
  now.tv_sec = static_cast<time_t>(us / US_PER_S);
  now.tv_usec = static_cast<suseconds_t>(us % US_PER_S);
  return now;
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
