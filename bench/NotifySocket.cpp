#include "bench/NotifySocket.h"

#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>

#include "support/Support.h"

namespace bench {

NotifySocket::NotifySocket()
    : m_socket(socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0), "a socket"),
      m_name("@daemon-bench-" + std::to_string(getpid()) + "-" + std::to_string(m_socket.get())) {
  const auto [address, length] = test::unix_address(m_name);
  if (bind(m_socket.get(), reinterpret_cast<const sockaddr*>(&address), length) != 0)
    throw std::system_error(errno, std::generic_category(), "socket " + m_name);
}

std::vector<std::string> NotifySocket::take() const {
  std::vector<std::string> reports;
  std::array<char, 256> report{};
  for (ssize_t count = 0; (count = recv(m_socket.get(), report.data(), report.size(), 0)) > 0;)
    reports.emplace_back(report.data(), static_cast<size_t>(count));
  return reports;
}

}  // namespace bench
