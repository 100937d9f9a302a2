#pragma once

#include <netinet/in.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>

/// Shared by the tests of several rooms. A failed set-up throws std::runtime_error.
namespace test {

class Unique {
 public:
  Unique() = default;
  Unique(const Unique&) = delete;
  Unique& operator=(const Unique&) = delete;
};

/// A new folder below the system's temporary one, readable by everyone. The destructor removes it.
class TempDir : Unique {
 public:
  TempDir() {
    std::string name = std::filesystem::temp_directory_path() / "satnavd-test-XXXXXX";
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("mkdtemp failed for " + name);
    m_path = name;
    std::filesystem::permissions(m_path, std::filesystem::perms(0755));
  }
  ~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
  }

  [[nodiscard]] const std::filesystem::path& path() const { return m_path; }
  [[nodiscard]] std::string operator/(std::string_view name) const { return (m_path / name).string(); }
  /// Writes or replaces a file and returns its path.
  std::string write(std::string_view name, std::string_view text) const {
    std::string path = *this / name;
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << text << std::flush;
    if (!file) throw std::runtime_error("cannot write " + path);
    return path;
  }

 private:
  std::filesystem::path m_path;
};

/// Returns a socket after `call` with a port of 127.0.0.1; -1 if that fails.
inline int socket_after(int (*call)(int, const sockaddr*, socklen_t), uint16_t port) {
  const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int on = 1;
  setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (call(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) return descriptor;
  close(descriptor);
  return -1;
}

/// Return a socket that listens on, or is connected to, a port of 127.0.0.1; -1 if that fails.
[[nodiscard]] inline int listen_on(uint16_t port) {
  const int descriptor = socket_after(::bind, port);
  if (descriptor < 0 || listen(descriptor, 16) == 0) return descriptor;
  close(descriptor);
  return -1;
}
[[nodiscard]] inline int connect_to(uint16_t port) {
  return socket_after(::connect, port);
}

/// Returns a TCP port of 127.0.0.1 that nobody listens on. It is outside the system's range for outgoing
/// connections, so it stays free while a test restarts its server.
[[nodiscard]] inline uint16_t free_port() {
  std::random_device random;
  for (int attempt = 0; attempt < 200; ++attempt) {
    const auto port = static_cast<uint16_t>(20000 + random() % 12000);
    if (close(listen_on(port)) == 0) return port;
  }
  throw std::runtime_error("no free port");
}

/// Returns the address of a local socket: a path, or "@" and an abstract name.
[[nodiscard]] inline std::pair<sockaddr_un, socklen_t> unix_address(const std::string& name) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  name.copy(static_cast<char*>(address.sun_path), sizeof address.sun_path - 1);
  const bool is_path = name[0] != '@';
  if (!is_path) address.sun_path[0] = '\0';
  return {address, static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size() + (is_path ? 1 : 0))};
}

/// Returns the content of a file; empty if the file cannot be read.
[[nodiscard]] inline std::string text_of(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

[[nodiscard]] inline size_t occurrences(std::string_view text, std::string_view part) {
  size_t count = 0;
  for (size_t at = text.find(part); at != std::string_view::npos; at = text.find(part, at + 1)) ++count;
  return count;
}

[[nodiscard]] inline std::string program(std::string_view name) {
  return std::string(SATNAVD_BIN_DIR "/").append(name);
}

/// Returns true as soon as the predicate, which is checked every 2 ms, is true; false after `timeout_ms`.
[[nodiscard]] inline bool eventually(const std::function<bool()>& predicate, int timeout_ms) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_ms);
  while (!predicate()) {
    if (std::chrono::steady_clock::now() >= end) return predicate();
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

}  // namespace test
