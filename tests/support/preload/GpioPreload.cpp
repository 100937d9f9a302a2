// Stands in for the files below /sys/class/gpio: preloaded into a program, it lets `open` find them in the
// folder that SATNAVD_TEST_GPIO names, and writes a line for every `write` to one of them into the folder's
// file `log`: "<path below the folder> <bytes in hex>". When SATNAVD_TEST_SPI is set, the simulated receiver
// is behind the SPI device, at that rate in Hz. Every other call passes through.

#include <dlfcn.h>
#include <fcntl.h>
#include <linux/spi/spidev.h>
#include <sys/ioctl.h>
#include <sys/types.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "sim/gnss/Receiver.h"

namespace {

constexpr std::string_view GPIO = "/sys/class/gpio";
constexpr std::string_view SPI = "/dev/spidev2.0";
constexpr int MAX_FD = 1024;
constexpr int PATH_MAX_LENGTH = 256;

/// The descriptors of stand-ins: writes to them are told. No constructor: the calls come from the very start.
struct Watched {
  std::atomic<bool> is_open;
  char name[PATH_MAX_LENGTH];
};
Watched watched[MAX_FD];

template <typename Function>
Function* next(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

std::string setting(const char* name) {
  const char* const text = getenv(name);
  return text != nullptr ? text : "";
}

using Open = int(const char*, int, ...);

int watch(int fd, std::string_view name) {
  if (fd < 0 || fd >= MAX_FD) return fd;
  static_cast<void>(snprintf(watched[fd].name, sizeof watched[fd].name, "%s", name.data()));
  watched[fd].is_open = true;
  return fd;
}

int open_stand_in(Open* real, std::string_view path, int flags, mode_t mode) {
  if (path == SPI && !setting("SATNAVD_TEST_SPI").empty()) return watch(real("/dev/null", flags, mode), path);
  const std::string folder = setting("SATNAVD_TEST_GPIO");
  if (!path.starts_with(GPIO) || folder.empty()) return real(path.data(), flags, mode);
  const std::string_view name = path.substr(GPIO.size());
  return watch(real((folder + std::string(name)).c_str(), flags, mode), name);
}

void tell(const char* name, std::string_view bytes) {
  std::string line = std::string(name + 1) + " ";
  for (const char byte : bytes) {
    char digits[3];
    static_cast<void>(snprintf(digits, sizeof digits, "%02x", static_cast<unsigned char>(byte)));
    line += digits;
  }
  line += '\n';
  const int log = next<Open>("open")((setting("SATNAVD_TEST_GPIO") + "/log").c_str(),
                                     O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  if (log < 0) return;
  (void)!next<ssize_t(int, const void*, size_t)>("write")(log, line.data(), line.size());
  next<int(int)>("close")(log);
}

bool is_watched(int fd) {
  return fd >= 0 && fd < MAX_FD && watched[fd].is_open;
}

int64_t now_us(clockid_t clock) {
  timespec now{};
  clock_gettime(clock, &now);
  return int64_t{now.tv_sec} * 1'000'000 + now.tv_nsec / 1000;
}

/// One thread of the service uses the bus.
int transfer(const spi_ioc_transfer& record) {
  using namespace ecu::koru::sim;
  static Receiver receiver([] {
    ReceiverOptions options;
    options.spi = true;
    options.start_us = now_us(CLOCK_MONOTONIC);
    options.utc_start_us = now_us(CLOCK_REALTIME);
    options.rate_hz = std::stoi(setting("SATNAVD_TEST_SPI"));
    return options;
  }());
  receiver.advance_to(now_us(CLOCK_MONOTONIC));
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
  // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): mistaken when it reads several files in one run
  const mode_t mode = (flags & (O_CREAT | __O_TMPFILE)) != 0 ? va_arg(rest, mode_t) : 0;
  va_end(rest);
  return open_stand_in(next<Open>("open"), path, flags, mode);
}

ssize_t write(int fd, const void* bytes, size_t count) {
  if (is_watched(fd)) tell(watched[fd].name, {static_cast<const char*>(bytes), count});
  return next<ssize_t(int, const void*, size_t)>("write")(fd, bytes, count);
}

int ioctl(int fd, unsigned long request, ...) {
  va_list rest;
  va_start(rest, request);
  void* const argument = va_arg(rest, void*);
  va_end(rest);
  if (is_watched(fd) && watched[fd].name == SPI && request == SPI_IOC_MESSAGE(1))
    return transfer(*static_cast<const spi_ioc_transfer*>(argument));
  return next<int(int, unsigned long, ...)>("ioctl")(fd, request, argument);
}

int close(int fd) {
  if (is_watched(fd)) watched[fd].is_open = false;
  return next<int(int)>("close")(fd);
}
}
