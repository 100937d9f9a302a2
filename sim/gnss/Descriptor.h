#pragma once

#include <unistd.h>

#include <cerrno>
#include <string>
#include <system_error>

namespace ecu::koru::sim {

/// Owns a file descriptor and closes it.
class Descriptor {
 public:
  /// Throws std::system_error with errno and the text `what` if `fd` is negative.
  Descriptor(int fd, const std::string& what) : m_fd(fd) {
    if (m_fd < 0) throw std::system_error(errno, std::generic_category(), what);
  }
  ~Descriptor() { close(m_fd); }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  [[nodiscard]] int get() const { return m_fd; }

 private:
  int m_fd;
};

}  // namespace ecu::koru::sim
