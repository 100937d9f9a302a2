#pragma once

#include <stdexcept>
#include <string>
#include <vector>

#include "support/Support.h"

namespace test {

/// The service manager's end of NOTIFY_SOCKET. `name` is a path, or "@" and an abstract name.
class NotifySocket {
 public:
  explicit NotifySocket(const std::string& name)
      : m_fd(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
    const auto [address, length] = unix_address(name);
    if (bind(m_fd, reinterpret_cast<const sockaddr*>(&address), length) != 0)
      throw std::runtime_error("cannot listen on " + name);
  }
  ~NotifySocket() { close(m_fd); }
  NotifySocket(const NotifySocket&) = delete;
  NotifySocket& operator=(const NotifySocket&) = delete;

  /// What has come since the last call.
  std::vector<std::string> take() {
    std::vector<std::string> texts;
    char text[512];
    for (ssize_t length; (length = recv(m_fd, text, sizeof text, 0)) >= 0;)
      texts.emplace_back(text, static_cast<size_t>(length));
    return texts;
  }

 private:
  const int m_fd;
};

}  // namespace test
