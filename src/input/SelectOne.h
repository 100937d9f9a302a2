#pragma once

#include <sys/select.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "platform/base/WakeUp.h"

namespace ecu::koru::gpspub {

enum class SelectFor { READING, WRITING, EXCEPTION };

/// Calls select() for one descriptor, for at most `timeout_us` (below a second) or until `wake` (may be null)
/// ends the wait. Returns 1 if the descriptor is ready, 0 if not, -1 on error.
inline int selectOne(int fd, SelectFor what, int timeout_us, WakeUp* wake = nullptr) {
  const int last_fd = wake != nullptr ? std::max(fd, wake->fd()) : fd;
  if (fd < 0 || last_fd >= FD_SETSIZE) {
    errno = EBADF;
    return -1;
  }
  std::array<fd_set, 3> sets{};
  std::array<fd_set*, 3> used{};
  const auto watch = [&](int watched, SelectFor how) {
    const auto i = static_cast<size_t>(how);
    used.at(i) = &sets.at(i);
    FD_SET(watched, used.at(i));
    return used.at(i);
  };
  const fd_set* const ready = watch(fd, what);
  const fd_set* const woken = wake != nullptr ? watch(wake->fd(), SelectFor::READING) : nullptr;
  timeval timeout{0, timeout_us};
  const int count = ::select(last_fd + 1, used[0], used[1], used[2], &timeout);
  if (count <= 0) return count;
  if (wake != nullptr && FD_ISSET(wake->fd(), woken)) wake->clear();
  return FD_ISSET(fd, ready) ? 1 : 0;
}

}  // namespace ecu::koru::gpspub
