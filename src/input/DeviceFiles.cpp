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

class DeviceFiles final : public IDeviceFiles {
 public:
  int open(const std::string& path, int flags) override { return ::open(path.c_str(), flags); }
  int close(int fd) override { return ::close(fd); }

  ssize_t read(int fd, void* data, size_t max) override {
    return uninterrupted([&] { return ::read(fd, data, max); });
  }

  ssize_t write(int fd, const void* data, size_t len) override {
    return uninterrupted([&] { return ::write(fd, data, len); });
  }

  off_t rewind(int fd) override { return ::lseek(fd, 0, SEEK_SET); }

  int waitException(int fd, int timeout_us, WakeUp* wake) override {
    return selectOne(fd, SelectFor::EXCEPTION, timeout_us, wake);
  }

  int transfer(int fd, spi_ioc_transfer& record) override {
    return uninterrupted([&] { return ::ioctl(fd, SPI_IOC_MESSAGE(1), &record); });
  }
};

}  // namespace

std::unique_ptr<IDeviceFiles> makeDeviceFiles() {
  return std::make_unique<DeviceFiles>();
}

}  // namespace ecu::koru::gpspub
