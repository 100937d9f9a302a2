#include "platform/base/WakeUp.h"

#include <sys/eventfd.h>
#include <sys/select.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <system_error>

namespace ecu::koru {

namespace {

static_assert(std::atomic<bool>::is_always_lock_free, "signal handlers call wake()");

int open_event() {
  const int fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (fd < 0) throw std::system_error(errno, std::generic_category(), "eventfd");
  if (fd >= FD_SETSIZE) {
    close(fd);
    throw std::system_error(EMFILE, std::generic_category(), "eventfd for select()");
  }
  return fd;
}

}  // namespace

WakeUp::WakeUp() : m_fd(open_event()) {}

WakeUp::~WakeUp() {
  close(m_fd);
}

void WakeUp::wake() {
  if (m_pending.exchange(true)) return;
  const int error = errno;
  const uint64_t one = 1;
  static_cast<void>(!write(m_fd, &one, sizeof one));  // the count never comes near its limit
  errno = error;
}

/// Reads first: a wake() that comes between the two steps finds the flag set and writes nothing. The owner
/// has yet to look at what that caller has changed, so it needs no further end of a wait.
void WakeUp::clear() {
  uint64_t count = 0;
  static_cast<void>(!read(m_fd, &count, sizeof count));
  m_pending = false;
}

}  // namespace ecu::koru
