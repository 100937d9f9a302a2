#pragma once

#include <sys/select.h>

#include <array>
#include <cerrno>

namespace ecu::koru::gpspub {

enum class SelectFor { READING, WRITING, EXCEPTION };

/// Calls select() for one descriptor, for at most `timeout_us` (below a second). Returns 1 if it is ready, 0
/// on time-out, -1 on error.
inline int selectOne(int fd, SelectFor what, int timeout_us) {
  if (fd < 0 || fd >= FD_SETSIZE) {
    errno = EBADF;
    return -1;
  }
  fd_set set;
  FD_ZERO(&set);
  FD_SET(fd, &set);
  std::array<fd_set*, 3> sets{};
  sets.at(static_cast<size_t>(what)) = &set;
  timeval timeout{0, timeout_us};
  return ::select(fd + 1, sets[0], sets[1], sets[2], &timeout);
}

}  // namespace ecu::koru::gpspub
