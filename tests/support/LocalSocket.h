#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "support/Support.h"

namespace test {

/// The socket of a log daemon or a service manager, read only on request. `name` is a path, or "@" and
/// an abstract name.
class LocalSocket : Unique {
 public:
  explicit LocalSocket(const std::string& name, int type = SOCK_DGRAM)
      : m_socket(socket(AF_UNIX, type | SOCK_CLOEXEC, 0)) {
    const auto [address, length] = unix_address(name);
    unlink(name.c_str());
    EXPECT_EQ(bind(m_socket, reinterpret_cast<const sockaddr*>(&address), length), 0);
    if (type == SOCK_STREAM) listen(m_socket, 5);
  }
  ~LocalSocket() { close(m_socket); }

  /// Returns one datagram, or the bytes in the next connection; empty if there is nothing.
  [[nodiscard]] std::string received() const {
    const int connection = accept4(m_socket, nullptr, nullptr, SOCK_CLOEXEC);  // fails if it is not a stream
    std::string bytes(65536, '\0');
    const ssize_t count =
        recv(connection >= 0 ? connection : m_socket, bytes.data(), bytes.size(), MSG_DONTWAIT);
    bytes.resize(static_cast<size_t>(std::max<ssize_t>(count, 0)));
    return bytes;
  }

  /// Returns all datagrams since the last call.
  [[nodiscard]] std::vector<std::string> take() const {
    std::vector<std::string> texts;
    for (std::string text; !(text = received()).empty();) texts.push_back(text);
    return texts;
  }

 private:
  const int m_socket;
};

}  // namespace test
