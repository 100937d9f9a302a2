#pragma once

#include <linux/spi/spidev.h>
#include <sys/types.h>

#include <cstddef>
#include <string>

namespace ecu::koru::gpspub {

/// The seam to the SPI device and to the files of a processor line: one operating-system call an operation,
/// results and errno as the call leaves them; what a signal interrupted is done again, but for
/// waitException(). A test version stands beside the real one in the tests. Service thread only.
class ISpiDevice {
 public:
  virtual ~ISpiDevice() = default;
  /// The descriptor or -1.
  virtual int open(const std::string& path, int flags) = 0;
  virtual int close(int fd) = 0;
  virtual ssize_t read(int fd, void* data, size_t max) = 0;
  virtual ssize_t write(int fd, const void* data, size_t len) = 0;
  /// lseek() to the beginning: 0 or -1.
  virtual off_t rewind(int fd) = 0;
  /// select() for an exceptional condition for at most `timeout_us` (below a second): 1 there is one, 0
  /// time-out, -1 error. On the value file of a line that is an edge since the last read.
  virtual int waitException(int fd, int timeout_us) = 0;
  /// SPI_IOC_MESSAGE(1): one full-duplex transfer; the number of bytes or -1.
  virtual int transfer(int fd, spi_ioc_transfer& record) = 0;
};

/// Waits and sleeps of the thread that makes it, the service's, may end a millisecond late from then on:
/// with slices of 10 ms the kernel's usual slack would let the whole service wake more than 100 times a
/// second.
class SpiDevice final : public ISpiDevice {
 public:
  SpiDevice();
  int open(const std::string& path, int flags) override;
  int close(int fd) override;
  ssize_t read(int fd, void* data, size_t max) override;
  ssize_t write(int fd, const void* data, size_t len) override;
  off_t rewind(int fd) override;
  int waitException(int fd, int timeout_us) override;
  int transfer(int fd, spi_ioc_transfer& record) override;
};

}  // namespace ecu::koru::gpspub
