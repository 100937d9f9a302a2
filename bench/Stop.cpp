#include "bench/Stop.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <stdexcept>
#include <thread>

namespace bench {

namespace {

constexpr std::chrono::milliseconds STEP{100};

std::atomic<bool>& stopCell() {
  static std::atomic<bool> cell{false};
  return cell;
}

}  // namespace

void catchStopSignals() {
  (void)stopCell();
  for (const int signal : {SIGINT, SIGTERM, SIGHUP})
    (void)std::signal(signal, [](int) { stopCell() = true; });
}

bool isStopped() {
  return stopCell();
}

void checkStop() {
  if (isStopped()) throw std::runtime_error("stopped by a signal");
}

void restUntil(Clock::time_point end) {
  for (auto now = Clock::now(); now < end; now = Clock::now()) {
    checkStop();
    std::this_thread::sleep_until(std::min<Clock::time_point>(end, now + STEP));
  }
  checkStop();
}

void rest(Clock::duration time) {
  restUntil(Clock::now() + time);
}

}  // namespace bench
