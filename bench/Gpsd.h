#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

#include "bench/ProcessFigures.h"
#include "support/Process.h"

namespace bench {

/// Debian's gpsd on one device, which it only reads, with one client on a local port that gets and counts all
/// reports. Everything ends with the object. Throws std::runtime_error with the reason.
class Gpsd {
 public:
  [[nodiscard]] static bool isInstalled() { return !path().empty(); }

  explicit Gpsd(const std::string& device);
  ~Gpsd();
  Gpsd(const Gpsd&) = delete;
  Gpsd& operator=(const Gpsd&) = delete;

  [[nodiscard]] ProcessFigures figures();
  /// Returns how many reports of a position the client got.
  [[nodiscard]] size_t fixes() const { return m_fixes; }
  /// Returns the version that it reported; empty before that.
  [[nodiscard]] std::string version() const;
  /// Returns what the service wrote, for the text of a failure.
  [[nodiscard]] std::string said() const { return m_process->out() + m_process->err(); }

 private:
  /// Returns the empty text if it is not installed.
  [[nodiscard]] static std::string path();
  void connect(uint16_t port);
  void readReports();
  void take(std::string_view report);

  std::unique_ptr<test::Process> m_process;
  int m_client = -1;
  std::atomic<size_t> m_fixes{0};
  mutable std::mutex m_mutex;  // guards the version
  std::string m_version;
  std::thread m_reader;
};

}  // namespace bench
