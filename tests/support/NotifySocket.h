#pragma once

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

namespace test {

/// The service manager's end of NOTIFY_SOCKET. `name` is a path, or "@" and an abstract name.
class NotifySocket {
 public:
  explicit NotifySocket(const std::string& name)
      : m_fd(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, name.data(), name.size());
    if (name[0] == '@') address.sun_path[0] = '\0';
    const auto length = offsetof(sockaddr_un, sun_path) + name.size() + (name[0] == '@' ? 0 : 1);
    if (bind(m_fd, reinterpret_cast<const sockaddr*>(&address), static_cast<socklen_t>(length)) != 0)
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
