#include "input/DeviceFiles.h"

#include <fcntl.h>
#include <linux/spi/spidev.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>

#include "input/SelectOne.h"

namespace ecu::koru::gpspub {

namespace {
/// A stop signal must not look like a lost line or a message that failed.
auto uninterrupted(const auto& call) {
  auto result = call();
  while (result < 0 && errno == EINTR) result = call();
  return result;
}
}  // namespace

int DeviceFiles::open(const std::string& path, int flags) {
  return ::open(path.c_str(), flags);
}

int DeviceFiles::close(int fd) {
  return ::close(fd);
}

ssize_t DeviceFiles::read(int fd, void* data, size_t max) {
  return uninterrupted([&] { return ::read(fd, data, max); });
}

ssize_t DeviceFiles::write(int fd, const void* data, size_t len) {
  return uninterrupted([&] { return ::write(fd, data, len); });
}

off_t DeviceFiles::rewind(int fd) {
  return ::lseek(fd, 0, SEEK_SET);
}

int DeviceFiles::waitException(int fd, int timeout_us) {
  return selectOne(fd, SelectFor::EXCEPTION, timeout_us);
}

int DeviceFiles::transfer(int fd, spi_ioc_transfer& record) {
  return uninterrupted([&] { return ::ioctl(fd, SPI_IOC_MESSAGE(1), &record); });
}

}  // namespace ecu::koru::gpspub
