#include "input/SpiDevice.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/select.h>
#include <unistd.h>

#include <cerrno>

namespace ecu::koru::gpspub {

namespace {
constexpr unsigned long TIMER_SLACK_NS = 1'000'000;

/// A stop signal must not look like a lost line or a message that failed.
auto uninterrupted(const auto& call) {
  auto result = call();
  while (result < 0 && errno == EINTR) result = call();
  return result;
}
}  // namespace

SpiDevice::SpiDevice() {
  (void)::prctl(PR_SET_TIMERSLACK, TIMER_SLACK_NS);
}

int SpiDevice::open(const std::string& path, int flags) {
  return ::open(path.c_str(), flags);
}

int SpiDevice::close(int fd) {
  return ::close(fd);
}

ssize_t SpiDevice::read(int fd, void* data, size_t max) {
  return uninterrupted([&] { return ::read(fd, data, max); });
}

ssize_t SpiDevice::write(int fd, const void* data, size_t len) {
  return uninterrupted([&] { return ::write(fd, data, len); });
}

off_t SpiDevice::rewind(int fd) {
  return ::lseek(fd, 0, SEEK_SET);
}

int SpiDevice::waitException(int fd, int timeout_us) {
  if (fd < 0 || fd >= FD_SETSIZE) {
    errno = EBADF;
    return -1;
  }
  fd_set exceptional;
  FD_ZERO(&exceptional);
  FD_SET(fd, &exceptional);
  timeval timeout{0, timeout_us};
  return ::select(fd + 1, nullptr, nullptr, &exceptional, &timeout);
}

int SpiDevice::transfer(int fd, spi_ioc_transfer& record) {
  return uninterrupted([&] { return ::ioctl(fd, SPI_IOC_MESSAGE(1), &record); });
}

}  // namespace ecu::koru::gpspub
