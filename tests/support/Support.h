#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>

/// What the tests of several rooms share. Failures to set something up throw std::runtime_error.
namespace test {

/// A folder of its own below the system's temporary one, readable by everyone, removed with its contents at
/// the end.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  [[nodiscard]] const std::filesystem::path& path() const { return m_path; }
  /// The path of a name inside the folder.
  [[nodiscard]] std::string operator/(std::string_view name) const { return (m_path / name).string(); }
  /// Writes (replaces) a file and returns its path.
  std::string write(std::string_view name, std::string_view text) const;

 private:
  std::filesystem::path m_path;
};

/// A TCP port of 127.0.0.1 that nobody listens on, outside the range from which the system numbers outgoing
/// connections: it stays free while a test restarts its server.
[[nodiscard]] uint16_t free_port();

/// A socket that listens on a port of 127.0.0.1, and one that is connected to it; -1 when that cannot be.
[[nodiscard]] int listen_on(uint16_t port);
[[nodiscard]] int connect_to(uint16_t port);

/// What stands in a file; nothing when there is none.
[[nodiscard]] std::string text_of(const std::string& path);

[[nodiscard]] size_t occurrences(std::string_view text, std::string_view part);

/// The path of a program of this build ("satnavd").
[[nodiscard]] std::string program(std::string_view name);

/// True when the programs of this build run in an emulator: what the system tells of such a process is the
/// emulator's.
[[nodiscard]] bool emulated();

/// True as soon as the predicate holds (asked every 2 ms), false when it does not within `timeout_ms`.
[[nodiscard]] bool eventually(const std::function<bool()>& predicate, int timeout_ms);

}  // namespace test
