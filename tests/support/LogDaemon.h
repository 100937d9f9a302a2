#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>

#include "support/Support.h"

namespace test {

/// A log daemon that reads only when it is asked to. `type` SOCK_DGRAM or SOCK_STREAM.
class LogDaemon {
 public:
  LogDaemon(const std::string& path, int type) : m_socket(socket(AF_UNIX, type | SOCK_CLOEXEC, 0)) {
    const auto [address, length] = unix_address(path);
    unlink(path.c_str());
    EXPECT_EQ(bind(m_socket, reinterpret_cast<const sockaddr*>(&address), length), 0);
    if (type == SOCK_STREAM) listen(m_socket, 5);
  }
  ~LogDaemon() { close(m_socket); }
  LogDaemon(const LogDaemon&) = delete;
  LogDaemon& operator=(const LogDaemon&) = delete;

  /// One datagram, or all that lies in the next connection; empty if there is nothing.
  [[nodiscard]] std::string received() const {
    const int connection = accept4(m_socket, nullptr, nullptr, SOCK_CLOEXEC);  // fails if it is no stream
    std::string bytes(65536, '\0');
    const ssize_t count =
        recv(connection >= 0 ? connection : m_socket, bytes.data(), bytes.size(), MSG_DONTWAIT);
    bytes.resize(static_cast<size_t>(std::max<ssize_t>(count, 0)));
    return bytes;
  }

 private:
  const int m_socket;
};

}  // namespace test
