// Preloaded into a program, this library replaces the parts of the system that these variables name.
//   SATNAVD_TEST_GPIO   a folder for the files below /sys/class/gpio; each keeps everything written to it
//   SATNAVD_TEST_SPI    the simulated receiver on the SPI device, at this rate in Hz
//   SATNAVD_TEST_LOG    the socket of a log daemon
//   SATNAVD_TEST_CLOCK  a file that begins with the shift of the system's clock in us. Setting the clock
//                       changes that shift, never the machine's own clock.

#include <dlfcn.h>
#include <fcntl.h>
#include <linux/spi/spidev.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cstdarg>
#include <cstdlib>
#include <string>
#include <string_view>

#include "sim/gnss/Receiver.h"
#include "support/Support.h"

namespace {

constexpr std::string_view GPIO = "/sys/class/gpio";
constexpr std::string_view SPI = "/dev/spidev2.0";

template <typename Function>
Function* next(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

std::string setting(const char* name) {
  const char* const text = getenv(name);
  return text != nullptr ? text : "";
}

int real_clock(clockid_t id, timespec* now) {
  static auto* const real = next<decltype(clock_gettime)>("clock_gettime");
  return real(id, now);
}

int64_t real_us(clockid_t id) {
  timespec now{};
  real_clock(id, &now);
  return int64_t{now.tv_sec} * 1'000'000 + now.tv_nsec / 1000;
}

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

/// Only one thread of the service uses the bus.
int transfer(const spi_ioc_transfer& record) {
  using namespace ecu::koru::sim;
  static Receiver receiver([] {
    ReceiverOptions options;
    options.spi = true;
    options.start_us = real_us(CLOCK_MONOTONIC);
    options.utc_start_us = real_us(CLOCK_REALTIME);
    options.rate_hz = std::stoi(setting("SATNAVD_TEST_SPI"));
    return options;
  }());
  receiver.advance_to(real_us(CLOCK_MONOTONIC));
  // NOLINTBEGIN(performance-no-int-to-ptr): the driver's record holds addresses as numbers
  receiver.transfer({reinterpret_cast<const uint8_t*>(static_cast<uintptr_t>(record.tx_buf)), record.len},
                    {reinterpret_cast<uint8_t*>(static_cast<uintptr_t>(record.rx_buf)), record.len});
  // NOLINTEND(performance-no-int-to-ptr)
  return static_cast<int>(record.len);
}

}  // namespace

extern "C" {

int open(const char* path, int flags, ...) {
  va_list rest;
  va_start(rest, flags);
  // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): it is mistaken if it checks several files in one run
  const mode_t mode = (flags & (O_CREAT | __O_TMPFILE)) != 0 ? va_arg(rest, mode_t) : 0;
  va_end(rest);
  auto* const real = next<int(const char*, int, ...)>("open");
  const std::string_view name = path;
  const std::string folder = setting("SATNAVD_TEST_GPIO");
  if (name == SPI && !setting("SATNAVD_TEST_SPI").empty()) return real("/dev/null", flags, mode);
  if (!name.starts_with(GPIO) || folder.empty()) return real(path, flags, mode);
  return real((folder + std::string(name.substr(GPIO.size()))).c_str(), flags | O_APPEND, mode);
}

/// Fortified programs call this if the compiler does not know the flags.
int __open_2(const char* path, int flags) {  // NOLINT(bugprone-reserved-identifier)
  return open(path, flags);
}

int ioctl(int fd, unsigned long request, ...) {
  va_list rest;
  va_start(rest, request);
  void* const argument = va_arg(rest, void*);
  va_end(rest);
  if (request == SPI_IOC_MESSAGE(1)) return transfer(*static_cast<const spi_ioc_transfer*>(argument));
  return next<int(int, unsigned long, ...)>("ioctl")(fd, request, argument);
}

int connect(int descriptor, const sockaddr* address, socklen_t length) {
  static auto* const real = next<decltype(connect)>("connect");
  const std::string log = setting("SATNAVD_TEST_LOG");
  const bool is_log = address->sa_family == AF_UNIX && std::string_view(address->sa_data) == _PATH_LOG;
  if (log.empty() || !is_log) return real(descriptor, address, length);
  const auto [other, other_length] = test::unix_address(log);
  return real(descriptor, reinterpret_cast<const sockaddr*>(&other), other_length);
}

int clock_gettime(clockid_t id, timespec* now) {
  const int result = real_clock(id, now);
  if (result != 0 || (id != CLOCK_REALTIME && id != CLOCK_REALTIME_COARSE)) return result;
  const int64_t us = real_us(id) + shift();
  now->tv_sec = us / 1'000'000;
  now->tv_nsec = static_cast<long>(us % 1'000'000 * 1000);
  return 0;
}

int gettimeofday(timeval* now, void*) {
  const int64_t us = real_us(CLOCK_REALTIME) + shift();
  now->tv_sec = us / 1'000'000;
  now->tv_usec = us % 1'000'000;
  return 0;
}

int settimeofday(const timeval* now, const struct timezone*) {
  shift() = int64_t{now->tv_sec} * 1'000'000 + now->tv_usec - real_us(CLOCK_REALTIME);
  return 0;
}
}
