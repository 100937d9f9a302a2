// Stands in for the system's clock: preloaded into a program, it shifts what the program reads by the
// microseconds at the beginning of the file that SATNAVD_TEST_CLOCK names, and turns a setting of the clock
// into such a shift. The machine's own clock is never touched.

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>

namespace {

constexpr int64_t US_PER_S = 1'000'000;
constexpr int64_t NS_PER_US = 1'000;

using Shift = std::atomic<int64_t>;

Shift& shift() {
  static Shift none{0};
  static Shift* const mapped = [] {
    const char* const path = getenv("SATNAVD_TEST_CLOCK");
    const int fd = path != nullptr ? open(path, O_RDWR | O_CLOEXEC) : -1;
    if (fd < 0) return &none;
    void* const page = mmap(nullptr, sizeof(Shift), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    close(fd);
    return page == MAP_FAILED ? &none : static_cast<Shift*>(page);
  }();
  return *mapped;
}

int real_clock(clockid_t id, timespec* now) {
  static auto* const next = reinterpret_cast<decltype(&clock_gettime)>(dlsym(RTLD_NEXT, "clock_gettime"));
  return next(id, now);
}

int64_t real_us() {
  timespec now{};
  real_clock(CLOCK_REALTIME, &now);
  return int64_t{now.tv_sec} * US_PER_S + now.tv_nsec / NS_PER_US;
}

}  // namespace

extern "C" {

int clock_gettime(clockid_t id, timespec* now) {
  const int result = real_clock(id, now);
  if (result != 0 || (id != CLOCK_REALTIME && id != CLOCK_REALTIME_COARSE)) return result;
  const int64_t us = int64_t{now->tv_sec} * US_PER_S + now->tv_nsec / NS_PER_US + shift();
  now->tv_sec = us / US_PER_S;
  now->tv_nsec = static_cast<long>(us % US_PER_S * NS_PER_US);
  return 0;
}

int gettimeofday(timeval* now, void*) {
  const int64_t us = real_us() + shift();
  now->tv_sec = us / US_PER_S;
  now->tv_usec = us % US_PER_S;
  return 0;
}

int settimeofday(const timeval* now, const struct timezone*) {
  shift() = int64_t{now->tv_sec} * US_PER_S + now->tv_usec - real_us();
  return 0;
}
}
