#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "input/DeviceFiles.h"

namespace ecu::koru::gpspub {

/// A line of the processor, used through its sysfs files. It logs nothing: the caller logs a failure, whose
/// reason is in errno. Service thread only.
class GpioLine {
 public:
  enum class Result { DONE, NOT_OPENED, NOT_WRITTEN };

  /// `root` is the folder of the GPIO files. `files` must outlive the line.
  GpioLine(IDeviceFiles& files, const std::string& name, const std::string& root = "/sys/class/gpio");
  ~GpioLine() { closeValue(); }
  GpioLine(const GpioLine&) = delete;
  GpioLine& operator=(const GpioLine&) = delete;

  [[nodiscard]] Result exportLine();
  /// A line that was just exported belongs to root until a udev rule gives it to the service's group. For
  /// the next 0.5 s, opening its files is retried.
  void beginPermissionWait();
  /// Writes to one of the line's files.
  [[nodiscard]] Result writeSetting(const std::string& path, std::string_view value);
  [[nodiscard]] const std::string& directionPath() const { return m_gpio_direction_path; }
  [[nodiscard]] const std::string& edgePath() const { return m_gpio_edge_path; }

  /// Opens the value file. Returns its descriptor, or -1.
  int openValue(int flags) { return m_fd_value = openPermitted(m_gpio_value_path, flags); }
  /// Returns -1 on failure, and 0 if the file is not open.
  int closeValue();
  [[nodiscard]] int fd() const { return m_fd_value; }
  /// Returns the line's level, or -1 if it cannot be read.
  [[nodiscard]] int level();
  /// Waits for an edge, see IDeviceFiles::waitException().
  [[nodiscard]] int waitForEdge(int timeout_us, WakeUp* wake) {
    return m_files.waitException(m_fd_value, timeout_us, wake);
  }
  /// Returns the number of bytes written, or -1. The driver takes the digit with its terminating NUL.
  ssize_t setLevel(bool high) { return m_files.write(m_fd_value, high ? "1" : "0", 2); }
  [[nodiscard]] const std::string& valuePath() const { return m_gpio_value_path; }

 private:
  [[nodiscard]] int openPermitted(const std::string& path, int flags);
  [[nodiscard]] Result writeAndClose(int fd, std::string_view bytes);

  IDeviceFiles& m_files;
  const std::string m_gpio_name;
  const std::string m_gpio_export_path;
  const std::string m_gpio_direction_path;
  const std::string m_gpio_edge_path;
  const std::string m_gpio_value_path;
  int m_fd_value = -1;
  int64_t m_permission_end_ns = 0;
};

}  // namespace ecu::koru::gpspub
