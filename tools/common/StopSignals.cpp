#include "tools/common/StopSignals.h"

#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <system_error>

namespace ecu::koru::tool {

namespace {

int checked(int fd, const char* what) {
  if (fd < 0) throw std::system_error(errno, std::generic_category(), what);
  return fd;
}

int stop_signal_fd() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  return checked(signalfd(-1, &signals, SFD_CLOEXEC), "signalfd");
}

}  // namespace

Event::Event() : m_fd(checked(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "eventfd")) {}

Event::~Event() {
  ::close(m_fd);
}

void Event::raise() {
  m_raised = true;
  eventfd_write(m_fd, 1);
}

void Event::clear() {
  eventfd_t count = 0;
  eventfd_read(m_fd, &count);
  m_raised = false;
}

StopSignals::StopSignals() : m_fd(stop_signal_fd()) {}

StopSignals::~StopSignals() {
  ::close(m_fd);
}

void ignore_broken_pipes() {
  (void)std::signal(SIGPIPE, SIG_IGN);
}

}  // namespace ecu::koru::tool
