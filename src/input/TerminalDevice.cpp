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

}  // namespace

int TerminalDevice::open(const std::string& path) {
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

int TerminalDevice::close(int fd) {
  static_cast<void>(::ioctl(fd, TIOCNXCL));  // it would stay exclusive while anybody else has it open
  return ::close(fd);
}

ssize_t TerminalDevice::read(int fd, void* data, size_t max) {
  return ::read(fd, data, max);
}

ssize_t TerminalDevice::write(int fd, const void* data, size_t len) {
  return ::write(fd, data, len);
}

int TerminalDevice::waitReadable(int fd, int timeout_us) {
  return selectOne(fd, SelectFor::READING, timeout_us);
}

bool TerminalDevice::isWritable(int fd) {
  const int ready = selectOne(fd, SelectFor::WRITING, 0);
  if (ready == 0) errno = EAGAIN;
  return ready > 0;
}

int TerminalDevice::bytesReadable(int fd) {
  int bytes = 0;
  return ::ioctl(fd, FIONREAD, &bytes) == 0 ? bytes : -1;
}

void TerminalDevice::dropInput(int fd) {
  static_cast<void>(::ioctl(fd, TCFLSH, TCIFLUSH));  // only a terminal has this queue
}

int TerminalDevice::getAttributes(int fd, termios& attributes) {
  return ::tcgetattr(fd, &attributes);
}

int TerminalDevice::setAttributes(int fd, const termios& attributes) {
  return ::tcsetattr(fd, TCSANOW, &attributes);
}

}  // namespace ecu::koru::gpspub
