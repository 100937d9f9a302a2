// Stands in for the files below /sys/class/gpio: preloaded into a program, it lets `open` find them in the
// folder that SATNAVD_TEST_GPIO names, and writes a line for every `write` to one of them into the folder's
// file `log`: "<CLOCK_MONOTONIC, ns> <path below the folder> <bytes in hex>". When SATNAVD_TEST_SPI is set,
// the simulated receiver is behind the SPI device and the value of its TX-ready line. Every other call passes
// through.

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/types.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "SpiStandIn.h"

namespace {

constexpr std::string_view GPIO = "/sys/class/gpio";
constexpr std::string_view TX_READY = "/gpio124/value";
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

const char* folder() {
  const char* const name = getenv("SATNAVD_TEST_GPIO");
  return name != nullptr ? name : "";
}

bool has_spi() {
  return getenv("SATNAVD_TEST_SPI") != nullptr;
}

using Open = int(const char*, int, ...);

int watch(int fd, std::string_view name) {
  if (fd < 0 || fd >= MAX_FD) return fd;
  static_cast<void>(snprintf(watched[fd].name, sizeof watched[fd].name, "%s", name.data()));
  watched[fd].is_open = true;
  return fd;
}

int open_stand_in(Open* real, std::string_view path, int flags, mode_t mode) {
  if (path == spi_stand_in::DEVICE && has_spi()) return watch(real("/dev/null", flags, mode), path);
  if (!path.starts_with(GPIO) || *folder() == '\0') return real(path.data(), flags, mode);
  const std::string_view name = path.substr(GPIO.size());
  return watch(real((folder() + std::string(name)).c_str(), flags, mode), name);
}

void tell(const char* name, std::string_view bytes) {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  std::string line =
      std::to_string(int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec) + " " + (name + 1) + " ";
  for (const char byte : bytes) {
    char digits[3];
    static_cast<void>(snprintf(digits, sizeof digits, "%02x", static_cast<unsigned char>(byte)));
    line += digits;
  }
  line += '\n';
  const int log = next<Open>("open")((std::string(folder()) + "/log").c_str(),
                                     O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  if (log < 0) return;
  (void)!next<ssize_t(int, const void*, size_t)>("write")(log, line.data(), line.size());
  next<int(int)>("close")(log);
}

bool is_watched(int fd) {
  return fd >= 0 && fd < MAX_FD && watched[fd].is_open;
}

bool is_watched(int fd, std::string_view name) {
  return is_watched(fd) && has_spi() && name == watched[fd].name;
}

mode_t mode_of(int flags, va_list rest) {
  return (flags & (O_CREAT | __O_TMPFILE)) != 0 ? va_arg(rest, mode_t) : 0;
}

}  // namespace

extern "C" {

int open(const char* path, int flags, ...) {
  va_list rest;
  va_start(rest, flags);
  const mode_t mode = mode_of(flags, rest);
  va_end(rest);
  return open_stand_in(next<Open>("open"), path, flags, mode);
}

int open64(const char* path, int flags, ...) {
  va_list rest;
  va_start(rest, flags);
  const mode_t mode = mode_of(flags, rest);
  va_end(rest);
  return open_stand_in(next<Open>("open64"), path, flags, mode);
}

ssize_t write(int fd, const void* bytes, size_t count) {
  if (is_watched(fd)) tell(watched[fd].name, {static_cast<const char*>(bytes), count});
  return next<ssize_t(int, const void*, size_t)>("write")(fd, bytes, count);
}

ssize_t read(int fd, void* bytes, size_t count) {
  if (!is_watched(fd, TX_READY) || count == 0)
    return next<ssize_t(int, void*, size_t)>("read")(fd, bytes, count);
  *static_cast<char*>(bytes) = spi_stand_in::line_level();
  return 1;
}

int ioctl(int fd, unsigned long request, ...) {
  va_list rest;
  va_start(rest, request);
  void* const argument = va_arg(rest, void*);
  va_end(rest);
  if (is_watched(fd, spi_stand_in::DEVICE) && request == SPI_IOC_MESSAGE(1))
    return spi_stand_in::transfer(*static_cast<const spi_ioc_transfer*>(argument));
  return next<int(int, unsigned long, ...)>("ioctl")(fd, request, argument);
}

int select(int count, fd_set* readable, fd_set* writable, fd_set* exceptional, timeval* timeout) {
  const int fd = count - 1;
  if (exceptional == nullptr || timeout == nullptr || fd < 0 || !FD_ISSET(fd, exceptional) ||
      !is_watched(fd, TX_READY))
    return next<int(int, fd_set*, fd_set*, fd_set*, timeval*)>("select")(count, readable, writable,
                                                                         exceptional, timeout);
  const int result = spi_stand_in::wait_for_line(int64_t{timeout->tv_sec} * 1'000'000 + timeout->tv_usec);
  if (result == 0) FD_CLR(fd, exceptional);
  return result;
}

int close(int fd) {
  if (is_watched(fd)) watched[fd].is_open = false;
  return next<int(int)>("close")(fd);
}
}
