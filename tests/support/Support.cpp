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

uint16_t free_port() {
  std::random_device random;
  for (int attempt = 0; attempt < 200; ++attempt) {
    const auto port = static_cast<uint16_t>(20000 + random() % 12000);
    const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const bool free = bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    close(descriptor);
    if (free) return port;
  }
  throw std::runtime_error("no free port");
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
