#include "tools/common/StopSignals.h"

#include <fcntl.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <system_error>

namespace ecu::koru::tool {

namespace {

int stop_signal_fd() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  return signalfd(-1, &signals, SFD_CLOEXEC);
}

}  // namespace

Descriptor::Descriptor(int fd, const char* what) : m_fd(fd) {
  if (fd < 0) throw std::system_error(errno, std::generic_category(), what);
}

Descriptor::~Descriptor() {
  ::close(m_fd);
}

Event::Event() : Descriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "eventfd") {}

void Event::raise() {
  m_raised = true;
  eventfd_write(fd(), 1);
}

void Event::clear() {
  eventfd_t count = 0;
  eventfd_read(fd(), &count);
  m_raised = false;
}

StopSignals::StopSignals() : Descriptor(stop_signal_fd(), "signalfd") {}

void ignore_write_signals() {
  (void)std::signal(SIGPIPE, SIG_IGN);
  (void)std::signal(SIGXFSZ, SIG_IGN);
}

void open_standard_descriptors() {
  int fd = 0;
  while (fd >= 0 && fd <= STDERR_FILENO) fd = ::open("/dev/null", O_RDWR);  // gets the lowest free number
  if (fd >= 0) ::close(fd);
}

}  // namespace ecu::koru::tool
