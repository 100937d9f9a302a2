#pragma once

#include <sys/types.h>
#include <termios.h>

#include <cstddef>
#include <string>

namespace ecu::koru::gpspub {

/// The seam to the terminal device: one operating-system call an operation, results and errno as the call
/// leaves them. A test version stands beside the real one in the tests. Service thread only.
class ITerminalDevice {
 public:
  virtual ~ITerminalDevice() = default;
  /// open(path, O_RDWR), for this process alone: the descriptor or -1; EBUSY when another one has it.
  virtual int open(const std::string& path) = 0;
  virtual int close(int fd) = 0;
  virtual ssize_t read(int fd, void* data, size_t max) = 0;
  virtual ssize_t write(int fd, const void* data, size_t len) = 0;
  /// select() for reading for at most `timeout_us` (below a second): 1 readable, 0 time-out, -1 error.
  virtual int waitReadable(int fd, int timeout_us) = 0;
  /// select() for writing without waiting; errno is EAGAIN when the line takes nothing now.
  virtual bool isWritable(int fd) = 0;
  /// FIONREAD: how many bytes can be read at once, or -1.
  virtual int bytesReadable(int fd) = 0;
  /// Drops what the device received and nobody has read (TCIFLUSH).
  virtual void dropInput(int fd) = 0;
  virtual int getAttributes(int fd, termios& attributes) = 0;
  /// tcsetattr(TCSANOW)
  virtual int setAttributes(int fd, const termios& attributes) = 0;
};

class TerminalDevice final : public ITerminalDevice {
 public:
  int open(const std::string& path) override;
  int close(int fd) override;
  ssize_t read(int fd, void* data, size_t max) override;
  ssize_t write(int fd, const void* data, size_t len) override;
  int waitReadable(int fd, int timeout_us) override;
  bool isWritable(int fd) override;
  int bytesReadable(int fd) override;
  void dropInput(int fd) override;
  int getAttributes(int fd, termios& attributes) override;
  int setAttributes(int fd, const termios& attributes) override;
};

}  // namespace ecu::koru::gpspub
