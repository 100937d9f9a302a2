#pragma once

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>

namespace test {

/// A log daemon that reads only when it is asked to. `type` SOCK_DGRAM or SOCK_STREAM.
class LogDaemon {
 public:
  LogDaemon(const std::string& path, int type) : m_socket(socket(AF_UNIX, type | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(static_cast<char*>(address.sun_path), sizeof address.sun_path - 1);
    unlink(path.c_str());
    EXPECT_EQ(bind(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    if (type == SOCK_STREAM) listen(m_socket, 5);
  }
  ~LogDaemon() { close(m_socket); }
  LogDaemon(const LogDaemon&) = delete;
  LogDaemon& operator=(const LogDaemon&) = delete;

  /// One datagram, or all that lies in an accepted connection; empty if there is nothing.
  [[nodiscard]] std::string received(int from = -1) const {
    std::string bytes(65536, '\0');
    const ssize_t count = recv(from >= 0 ? from : m_socket, bytes.data(), bytes.size(), MSG_DONTWAIT);
    bytes.resize(static_cast<size_t>(std::max<ssize_t>(count, 0)));
    return bytes;
  }
  [[nodiscard]] int accepted() const { return accept4(m_socket, nullptr, nullptr, SOCK_CLOEXEC); }

 private:
  const int m_socket;
};

/// Sends datagrams until the daemon's queue takes no more.
inline void fill(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(static_cast<char*>(address.sun_path), sizeof address.sun_path - 1);
  const int sender = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  while (sendto(sender, "x", 1, 0, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 1)
    continue;
  EXPECT_EQ(errno, EAGAIN);
  close(sender);
}

}  // namespace test
