#include "support/Support.h"

#include <netinet/in.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <random>
#include <stdexcept>
#include <system_error>
#include <thread>

namespace test {

namespace fs = std::filesystem;

TempDir::TempDir() {
  std::string name = (fs::temp_directory_path() / "satnavd-test-XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("mkdtemp failed for " + name);
  m_path = name;
  fs::permissions(m_path, fs::perms(0755));
}

TempDir::~TempDir() {
  std::error_code ignored;
  fs::remove_all(m_path, ignored);
}

std::string TempDir::write(std::string_view name, std::string_view text) const {
  std::string path = *this / name;
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << text << std::flush;
  if (!file) throw std::runtime_error("cannot write " + path);
  return path;
}

namespace {

using SocketCall = int(int, const sockaddr*, socklen_t);

/// A socket after `call` with a port's address, or -1.
int socket_after(SocketCall* call, uint16_t port) {
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

}  // namespace

uint16_t free_port() {
  std::random_device random;
  for (int attempt = 0; attempt < 200; ++attempt) {
    const auto port = static_cast<uint16_t>(20000 + random() % 12000);
    const int descriptor = listen_on(port);
    if (descriptor < 0) continue;
    close(descriptor);
    return port;
  }
  throw std::runtime_error("no free port");
}

int listen_on(uint16_t port) {
  const int descriptor = socket_after(::bind, port);
  if (descriptor < 0 || listen(descriptor, 16) == 0) return descriptor;
  close(descriptor);
  return -1;
}

int connect_to(uint16_t port) {
  return socket_after(::connect, port);
}

std::string text_of(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

size_t occurrences(std::string_view text, std::string_view part) {
  size_t count = 0;
  for (size_t at = text.find(part); at != std::string_view::npos; at = text.find(part, at + 1)) ++count;
  return count;
}

std::string program(std::string_view name) {
  return (fs::path(SATNAVD_BIN_DIR) / name).string();
}

bool emulated() {
  return SATNAVD_EMULATED;
}

bool eventually(const std::function<bool()>& predicate, int timeout_ms) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_ms);
  while (!predicate()) {
    if (std::chrono::steady_clock::now() >= end) return predicate();
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

}  // namespace test
