#pragma once

#include <sys/types.h>
#include <termios.h>

#include <cstddef>
#include <memory>
#include <string>

#include "platform/base/WakeUp.h"

namespace ecu::koru::gpspub {

/// The seam to the terminal device. Each operation but open() and close() is one operating-system call with
/// its result and errno. The tests have their own version. Service thread only.
class ITerminalDevice {
 public:
  virtual ~ITerminalDevice() = default;
  /// Opens with O_RDWR for this process alone. Returns the descriptor or -1, EBUSY if another one has it.
  virtual int open(const std::string& path) = 0;
  virtual int close(int fd) = 0;
  virtual ssize_t read(int fd, void* data, size_t max) = 0;
  virtual ssize_t write(int fd, const void* data, size_t len) = 0;
  /// Calls select() for up to `timeout_us` (below 1 s), or until `wake` (may be null) ends it. Returns 1 if
  /// readable, 0 if not, -1 on error.
  virtual int waitReadable(int fd, int timeout_us, WakeUp* wake) = 0;
  /// Asks select() without waiting. If the line takes nothing now, errno is EAGAIN.
  virtual bool isWritable(int fd) = 0;
  /// Returns how many bytes can be read at once (FIONREAD), or -1.
  virtual int bytesReadable(int fd) = 0;
  /// Drops received bytes that nobody has read (TCIFLUSH).
  virtual void dropInput(int fd) = 0;
  virtual int getAttributes(int fd, termios& attributes) = 0;
  /// Calls tcsetattr() with TCSANOW.
  virtual int setAttributes(int fd, const termios& attributes) = 0;
};

/// Returns the device of the operating system.
[[nodiscard]] std::unique_ptr<ITerminalDevice> makeTerminalDevice();

}  // namespace ecu::koru::gpspub
