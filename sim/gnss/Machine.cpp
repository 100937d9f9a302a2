#include "sim/gnss/Machine.h"

#include <signal.h>
#include <sys/signalfd.h>

namespace ecu::koru::sim {

int64_t clock_ns(clockid_t clock) {
  timespec now{};
  clock_gettime(clock, &now);
  return static_cast<int64_t>(now.tv_sec) * 1'000'000'000 + now.tv_nsec;
}

int64_t now_us() {
  return clock_ns(CLOCK_MONOTONIC) / 1000;
}

Descriptor block_signals() {
  sigset_t set;
  sigemptyset(&set);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&set, signal);
  sigprocmask(SIG_BLOCK, &set, nullptr);
  return {signalfd(-1, &set, SFD_NONBLOCK | SFD_CLOEXEC), "signalfd"};
}

}  // namespace ecu::koru::sim
