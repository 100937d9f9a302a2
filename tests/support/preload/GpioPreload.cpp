// Stands in for the files below /sys/class/gpio: preloaded into a program, it lets `open` find them in the
// folder that SATNAVD_TEST_GPIO names, and writes a line for every `write` to one of them into the folder's
// file `log`: "<CLOCK_MONOTONIC, ns> <path below the folder> <bytes in hex>". Every other call passes
// through.

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/types.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

namespace {

constexpr std::string_view GPIO = "/sys/class/gpio";
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

using Open = int(const char*, int, ...);

int open_stand_in(Open* real, std::string_view path, int flags, mode_t mode) {
  if (!path.starts_with(GPIO) || *folder() == '\0') return real(path.data(), flags, mode);
  const std::string_view name = path.substr(GPIO.size());
  const int fd = real((folder() + std::string(name)).c_str(), flags, mode);
  if (fd < 0 || fd >= MAX_FD) return fd;
  static_cast<void>(snprintf(watched[fd].name, sizeof watched[fd].name, "%s", name.data()));
  watched[fd].is_open = true;
  return fd;
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

int close(int fd) {
  if (is_watched(fd)) watched[fd].is_open = false;
  return next<int(int)>("close")(fd);
}
}
