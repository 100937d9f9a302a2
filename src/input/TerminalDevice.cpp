#include "input/TerminalDevice.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>

#include "input/SelectOne.h"

namespace ecu::koru::gpspub {

namespace {

/// A pseudo-terminal is never made exclusive: it would stay so while its other end has it open.
bool isPseudoTerminal(int fd) {
  constexpr unsigned FIRST_MAJOR = 136;  // UNIX98_PTY_SLAVE_MAJOR, the first of 8
  struct stat status {};
  const unsigned number = fstat(fd, &status) == 0 ? major(status.st_rdev) : 0;
  return number >= FIRST_MAJOR && number < FIRST_MAJOR + 8;
}

class TerminalDevice final : public ITerminalDevice {
 public:
  int open(const std::string& path) override {
    const int fd = ::open(path.c_str(), O_RDWR);
    if (fd < 0) return fd;
    if (::flock(fd, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
      ::close(fd);
      errno = EBUSY;
      return -1;
    }
    if (!isPseudoTerminal(fd))
      static_cast<void>(::ioctl(fd, TIOCEXCL));  // flock() binds only those who ask for it
    return fd;
  }

  int close(int fd) override {
    static_cast<void>(::ioctl(fd, TIOCNXCL));  // it would stay exclusive while anybody else has it open
    return ::close(fd);
  }

  ssize_t read(int fd, void* data, size_t max) override { return ::read(fd, data, max); }
  ssize_t write(int fd, const void* data, size_t len) override { return ::write(fd, data, len); }
  int waitReadable(int fd, int timeout_us, WakeUp* wake) override {
    return selectOne(fd, SelectFor::READING, timeout_us, wake);
  }

  bool isWritable(int fd) override {
    const int ready = selectOne(fd, SelectFor::WRITING, 0);
    if (ready == 0) errno = EAGAIN;
    return ready > 0;
  }

  int bytesReadable(int fd) override {
    int bytes = 0;
    return ::ioctl(fd, FIONREAD, &bytes) == 0 ? bytes : -1;
  }

  void dropInput(int fd) override {
    static_cast<void>(::ioctl(fd, TCFLSH, TCIFLUSH));  // only a terminal has this queue
  }

  int getAttributes(int fd, termios& attributes) override { return ::tcgetattr(fd, &attributes); }

  int setAttributes(int fd, const termios& attributes) override {
    return ::tcsetattr(fd, TCSANOW, &attributes);
  }
};

}  // namespace

std::unique_ptr<ITerminalDevice> makeTerminalDevice() {
  return std::make_unique<TerminalDevice>();
}

}  // namespace ecu::koru::gpspub
