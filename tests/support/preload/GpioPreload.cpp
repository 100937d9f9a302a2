// Stands in for the files below /sys/class/gpio: preloaded into a program, it lets `open` find them in the
// folder that SATNAVD_TEST_GPIO names, where each keeps all that was written to it. When SATNAVD_TEST_SPI is
// set, the simulated receiver is behind the SPI device, at that rate in Hz.

#include <dlfcn.h>
#include <fcntl.h>
#include <linux/spi/spidev.h>
#include <sys/ioctl.h>
#include <time.h>

#include <cstdarg>
#include <cstdlib>
#include <string>
#include <string_view>

#include "sim/gnss/Receiver.h"

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
  auto* const real = next<int(const char*, int, ...)>("open");
  const std::string_view name = path;
  const std::string folder = setting("SATNAVD_TEST_GPIO");
  if (name == SPI && !setting("SATNAVD_TEST_SPI").empty()) return real("/dev/null", flags, mode);
  if (!name.starts_with(GPIO) || folder.empty()) return real(path, flags, mode);
  return real((folder + std::string(name.substr(GPIO.size()))).c_str(), flags | O_APPEND, mode);
}

int ioctl(int fd, unsigned long request, ...) {
  va_list rest;
  va_start(rest, request);
  void* const argument = va_arg(rest, void*);
  va_end(rest);
  if (request == SPI_IOC_MESSAGE(1)) return transfer(*static_cast<const spi_ioc_transfer*>(argument));
  return next<int(int, unsigned long, ...)>("ioctl")(fd, request, argument);
}
}
