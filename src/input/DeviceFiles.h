#pragma once

#include <sys/types.h>

#include <cstddef>
#include <memory>
#include <string>

#include "platform/base/WakeUp.h"

struct spi_ioc_transfer;

namespace ecu::koru::gpspub {

/// The seam to the SPI device and to the files of the processor lines. Each operation is one operating-system
/// call with its result and errno. A read, write or transfer that a signal interrupts is repeated. The tests
/// have their own version. Service thread only.
class IDeviceFiles {
 public:
  virtual ~IDeviceFiles() = default;
  /// Returns the descriptor or -1.
  virtual int open(const std::string& path, int flags) = 0;
  virtual int close(int fd) = 0;
  virtual ssize_t read(int fd, void* data, size_t max) = 0;
  virtual ssize_t write(int fd, const void* data, size_t len) = 0;
  /// Calls lseek() to the beginning. Returns 0 or -1.
  virtual off_t rewind(int fd) = 0;
  /// Waits with select() for an exceptional condition, at most `timeout_us` (below a second) or until `wake`
  /// (may be null) ends it. Returns 1 if there is one, 0 if not, -1 on error. For a GPIO value file, the
  /// condition is an edge since the last read.
  virtual int waitException(int fd, int timeout_us, WakeUp* wake) = 0;
  /// Makes one full-duplex transfer on an SPI device (SPI_IOC_MESSAGE(1)). Returns the number of bytes or -1.
  virtual int transfer(int fd, spi_ioc_transfer& record) = 0;
};

/// Returns the files of the operating system.
[[nodiscard]] std::unique_ptr<IDeviceFiles> makeDeviceFiles();

}  // namespace ecu::koru::gpspub
