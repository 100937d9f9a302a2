#pragma once

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "input/SPI.h"
#include "platform/base/Time.h"

namespace test {

/// The SPI bus and the files of the TX-ready line, with fields to set them up and observe them.
class FakeSpi : public ecu::koru::gpspub::IDeviceFiles {
 public:
  static inline const std::string EXPORT = "/sys/class/gpio/export";
  static inline const std::string LINE = "/sys/class/gpio/gpio124/";

  bool exported = true;
  bool exportable = true;
  bool settable = true;            ///< direction and edge can be opened
  int64_t settable_after_ns = 0;   ///< permission is denied for this long after the export
  std::optional<char> line_stuck;  ///< '0' or '1'; with any other character reading fails
  std::string readings;            ///< the first readings of the line, as above, before its level is read
  // While one is not 0, the call fails with it as errno.
  int open_error = 0;
  int transfer_error = 0;
  // Recorded so far.
  std::vector<uint32_t> transfers;  ///< lengths of the successful transfers
  std::vector<int64_t> opens_ns;
  std::vector<int> line_waits_us;
  std::vector<std::string> written;  ///< to files: "path=bytes"

  int open(const std::string& path, int /*flags*/) override {
    const bool is_line = path.starts_with(LINE);
    if (path == ecu::koru::gpspub::SPI::DEVICE) {
      opens_ns.push_back(ecu::koru::time_source().steady_ns());
      if (open_error != 0) return failed(open_error);
    } else if (is_line ? !exported || (!settable && path != LINE + "value") : !exportable) {
      return failed(ENOENT);
    } else if (is_line && path != LINE + "value" &&
               ecu::koru::time_source().steady_ns() < m_exported_ns + settable_after_ns) {
      return failed(EACCES);
    }
    const int fd = FIRST + m_opened++;
    m_open[fd] = path;
    return fd;
  }
  int close(int fd) override { return m_open.erase(fd) == 1 ? 0 : failed(EBADF); }
  off_t rewind(int fd) override { return m_open.contains(fd) ? 0 : failed(EBADF); }
  ssize_t read(int fd, void* data, size_t /*max*/) override {
    const char stuck = line_stuck.value_or(is_line_high() ? '1' : '0');
    const char level = readings.empty() ? stuck : readings.front();
    readings.erase(0, 1);
    if (m_open[fd] != LINE + "value" || (level != '0' && level != '1')) return failed(EIO);
    *static_cast<char*>(data) = level;
    return 1;
  }
  ssize_t write(int fd, const void* data, size_t len) override {
    written.push_back(m_open[fd] + "=" + std::string(static_cast<const char*>(data), len));
    if (!std::exchange(exported, true)) m_exported_ns = ecu::koru::time_source().steady_ns();
    return static_cast<ssize_t>(len);
  }
  int waitException(int fd, int timeout_us, ecu::koru::WakeUp* wake) override {
    line_waits_us.push_back(timeout_us);
    if (m_open[fd] != LINE + "value") return failed(EBADF);
    return (line_stuck ? FakeSpi::waitForEdge(timeout_us, wake) : waitForEdge(timeout_us, wake)) ? 1 : 0;
  }
  int transfer(int fd, spi_ioc_transfer& record) override {
    const int error = m_open[fd] != ecu::koru::gpspub::SPI::DEVICE ? EBADF : transfer_error;
    if (error != 0) return failed(error);
    transfers.push_back(record.len);
    // NOLINTBEGIN(performance-no-int-to-ptr): the driver's record holds addresses as numbers
    exchange({reinterpret_cast<const uint8_t*>(static_cast<uintptr_t>(record.tx_buf)), record.len},
             {reinterpret_cast<uint8_t*>(static_cast<uintptr_t>(record.rx_buf)), record.len});
    // NOLINTEND(performance-no-int-to-ptr)
    return static_cast<int>(record.len);
  }
  [[nodiscard]] size_t open_files() const { return m_open.size(); }

 protected:
  virtual void exchange(std::span<const uint8_t> from_host, std::span<uint8_t> to_host) = 0;
  virtual bool is_line_high() = 0;
  /// Lets time pass. Returns true at the falling edge, false after the time-out or when woken.
  virtual bool waitForEdge(int timeout_us, ecu::koru::WakeUp* /*wake*/) {
    ecu::koru::time_source().sleep_ns(int64_t{timeout_us} * 1000);
    return false;
  }

 private:
  static constexpr int FIRST = 7;
  static int failed(int error) { return errno = error, -1; }
  std::map<int, std::string> m_open;
  int m_opened = 0;
  int64_t m_exported_ns = 0;
};

}  // namespace test
