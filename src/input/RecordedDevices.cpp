#include "input/RecordedDevices.h"

#include <linux/spi/spidev.h>

#include <algorithm>
#include <utility>

#include "input/BaudRate.h"
#include "input/SPI.h"

namespace ecu::koru::gpspub {

namespace {

std::span<const uint8_t> bytes(const void* data, ssize_t len) {
  return {static_cast<const uint8_t*>(data), static_cast<size_t>(len)};
}

class RecordedTerminal final : public ITerminalDevice {
 public:
  RecordedTerminal(std::unique_ptr<ITerminalDevice> device, std::shared_ptr<LinkRecorder> recorder)
      : m_device(std::move(device)), m_recorder(std::move(recorder)) {}

  int open(const std::string& path) override { return m_device->open(path); }

  int close(int fd) override {
    if (std::exchange(m_recorded_open, false)) m_recorder->closed();
    return m_device->close(fd);
  }

  ssize_t read(int fd, void* data, size_t max) override {
    const ssize_t count = m_device->read(fd, data, max);
    if (count > 0) m_recorder->received(bytes(data, count));
    return count;
  }

  ssize_t write(int fd, const void* data, size_t len) override {
    const ssize_t count = m_device->write(fd, data, len);
    if (count > 0) m_recorder->sent(bytes(data, count));
    return count;
  }

  int waitReadable(int fd, int timeout_us, WakeUp* wake) override {
    return m_device->waitReadable(fd, timeout_us, wake);
  }
  bool isWritable(int fd) override { return m_device->isWritable(fd); }
  int bytesReadable(int fd) override { return m_device->bytesReadable(fd); }
  void dropInput(int fd) override { m_device->dropInput(fd); }
  int getAttributes(int fd, termios& attributes) override { return m_device->getAttributes(fd, attributes); }

  /// The first attributes after the opening give the rate, so only here the port is recorded as open.
  int setAttributes(int fd, const termios& attributes) override {
    const int result = m_device->setAttributes(fd, attributes);
    const unsigned baud = result == 0 ? BaudRate::bitsPerSecond(cfgetospeed(&attributes)) : 0;
    if (!std::exchange(m_recorded_open, true)) {
      m_recorder->opened(baud);
    } else if (result == 0) {
      m_recorder->rateSet(baud);
    }
    return result;
  }

 private:
  const std::unique_ptr<ITerminalDevice> m_device;
  const std::shared_ptr<LinkRecorder> m_recorder;
  bool m_recorded_open = false;
};

class RecordedSpi final : public IDeviceFiles {
 public:
  RecordedSpi(std::unique_ptr<IDeviceFiles> device, std::shared_ptr<LinkRecorder> recorder)
      : m_device(std::move(device)), m_recorder(std::move(recorder)) {}

  int open(const std::string& path, int flags) override {
    const int fd = m_device->open(path, flags);
    if (fd >= 0 && path == SPI::DEVICE) {
      m_fd = fd;
      m_recorder->opened(0);
    }
    return fd;
  }

  int close(int fd) override {
    if (fd == m_fd) {
      m_fd = -1;
      m_recorder->closed();
    }
    return m_device->close(fd);
  }

  int transfer(int fd, spi_ioc_transfer& record) override {
    const int count = m_device->transfer(fd, record);
    if (count <= 0) return count;
    // NOLINTBEGIN(performance-no-int-to-ptr): the driver's record holds addresses as numbers
    const auto sent = bytes(reinterpret_cast<const void*>(static_cast<uintptr_t>(record.tx_buf)), count);
    const auto received = bytes(reinterpret_cast<const void*>(static_cast<uintptr_t>(record.rx_buf)), count);
    // NOLINTEND(performance-no-int-to-ptr)
    if (!isFill(sent)) {
      m_recorder->sent(sent);
    } else if (!isFill(received)) {
      m_recorder->received(received);
    }
    return count;
  }

  ssize_t read(int fd, void* data, size_t max) override { return m_device->read(fd, data, max); }
  ssize_t write(int fd, const void* data, size_t len) override { return m_device->write(fd, data, len); }
  off_t rewind(int fd) override { return m_device->rewind(fd); }
  int waitException(int fd, int timeout_us, WakeUp* wake) override {
    return m_device->waitException(fd, timeout_us, wake);
  }

 private:
  static bool isFill(std::span<const uint8_t> transferred) {
    return std::ranges::all_of(transferred, [](uint8_t byte) { return byte == SPI::FILL; });
  }

  const std::unique_ptr<IDeviceFiles> m_device;
  const std::shared_ptr<LinkRecorder> m_recorder;
  int m_fd = -1;  // the bus, while it is open
};

}  // namespace

std::unique_ptr<ITerminalDevice> recorded(std::unique_ptr<ITerminalDevice> device,
                                          std::shared_ptr<LinkRecorder> recorder) {
  if (recorder == nullptr) return device;
  return std::make_unique<RecordedTerminal>(std::move(device), std::move(recorder));
}

std::unique_ptr<IDeviceFiles> recorded(std::unique_ptr<IDeviceFiles> device,
                                       std::shared_ptr<LinkRecorder> recorder) {
  if (recorder == nullptr) return device;
  return std::make_unique<RecordedSpi>(std::move(device), std::move(recorder));
}

}  // namespace ecu::koru::gpspub
