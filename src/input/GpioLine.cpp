#include "input/GpioLine.h"

#include <fcntl.h>

#include <cerrno>
#include <utility>

#include "platform/base/Time.h"

namespace ecu::koru::gpspub {

namespace {

constexpr int64_t PERMISSION_NS = 500'000'000;
constexpr int64_t PERMISSION_STEP_NS = 10'000'000;

}  // namespace

GpioLine::GpioLine(IDeviceFiles& files, const std::string& name, const std::string& root)
    : m_files(files),
      m_gpio_name(name),
      m_gpio_export_path(root + "/export"),
      m_gpio_direction_path(root + "/gpio" + name + "/direction"),
      m_gpio_edge_path(root + "/gpio" + name + "/edge"),
      m_gpio_value_path(root + "/gpio" + name + "/value") {}

GpioLine::Result GpioLine::exportLine() {
  return writeAndClose(m_files.open(m_gpio_export_path, O_WRONLY), m_gpio_name);
}

void GpioLine::beginPermissionWait() {
  m_permission_end_ns = time_source().steady_ns() + PERMISSION_NS;
}

GpioLine::Result GpioLine::writeSetting(const std::string& path, std::string_view value) {
  return writeAndClose(openPermitted(path, O_RDWR), value);
}

GpioLine::Result GpioLine::writeAndClose(int fd, std::string_view bytes) {
  if (fd < 0) return Result::NOT_OPENED;
  const bool written = m_files.write(fd, bytes.data(), bytes.size()) >= 0;
  const int error = errno;
  m_files.close(fd);
  errno = error;
  return written ? Result::DONE : Result::NOT_WRITTEN;
}

int GpioLine::openPermitted(const std::string& path, int flags) {
  int fd = m_files.open(path, flags);
  while (fd < 0 && errno == EACCES && time_source().steady_ns() < m_permission_end_ns) {
    time_source().sleep_ns(PERMISSION_STEP_NS);
    fd = m_files.open(path, flags);
  }
  return fd;
}

int GpioLine::closeValue() {
  const int fd = std::exchange(m_fd_value, -1);
  return fd >= 0 ? m_files.close(fd) : 0;
}

int GpioLine::level() {
  char level = 0;
  if (m_fd_value < 0) return -1;
  (void)m_files.rewind(m_fd_value);  // a failure shows in the read below
  if (m_files.read(m_fd_value, &level, 1) != 1) return -1;
  return level == '0' || level == '1' ? level - '0' : -1;
}

}  // namespace ecu::koru::gpspub
