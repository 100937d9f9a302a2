#include "ublox/ReceiverLines.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "platform/base/Time.h"
#include "wire/ServiceLog.h"

namespace ecu::koru::gpspub {

namespace {

constexpr std::string_view USUAL_LINE = "197";
constexpr std::string_view N2_LINE = "121";
constexpr int64_t PULSE_NS = 500'000'000;
// A line that was just exported belongs to root until a udev rule gives it to the service's group.
constexpr int64_t PERMISSION_NS = 500'000'000;
constexpr int64_t PERMISSION_STEP_NS = 10'000'000;

// The driver takes the digit with its terminating NUL.
constexpr char LOW[2] = "0";
constexpr char HIGH[2] = "1";

/// A descriptor that the destructor closes.
class File {
 public:
  File(const std::string& path, int flags) : m_fd(::open(path.c_str(), flags)) {}
  ~File() {
    if (m_fd >= 0) ::close(m_fd);
  }
  File(const File&) = delete;
  File& operator=(const File&) = delete;
  void reopen(const std::string& path, int flags) {
    if (m_fd >= 0) ::close(m_fd);
    m_fd = ::open(path.c_str(), flags);
  }
  [[nodiscard]] int fd() const { return m_fd; }
  [[nodiscard]] ssize_t write(std::string_view bytes) const {
    return ::write(m_fd, bytes.data(), bytes.size());
  }

 private:
  int m_fd;
};

}  // namespace

ReceiverLines::ReceiverLines(const std::string& hw_version, std::string root)
    : m_is_n2(hw_version == "n2"), m_root(std::move(root)) {}

std::string ReceiverLines::valuePath(std::string_view gpio) const {
  return m_root + "/gpio" + std::string(gpio) + "/value";
}

void ReceiverLines::exportLine(const std::string& gpio) const {
  const File file(m_root + "/export", O_WRONLY);
  if (file.fd() < 0) {
    LOG.error("Error to open /sys/class/gpio/export. errno = ", errno);
  } else if (file.write(gpio) < 0) {
    LOG.error("Error writing '", gpio, "' to sys/class/gpio/export.", " errno = ", errno);
  }
}

void ReceiverLines::writeSetting(const std::string& path, const std::string& value) {
  File file(path, O_RDWR);
  for (int64_t waited = 0; file.fd() < 0 && errno == EACCES && waited < PERMISSION_NS;
       waited += PERMISSION_STEP_NS) {
    time_source().sleep_ns(PERMISSION_STEP_NS);
    file.reopen(path, O_RDWR);
  }
  if (file.fd() < 0) {
    LOG.error("Error to open ", path, " errno = ", errno);
  } else if (file.write(value) < 0) {
    LOG.error("Error writing '", value, "' to ", path, " errno = ", errno);
  }
}

void ReceiverLines::configureLinuxGpioControl(const std::string& gpio, const std::string& direction,
                                              const std::string& edge) const {
  exportLine(gpio);
  writeSetting(m_root + "/gpio" + gpio + "/direction", direction);
  writeSetting(m_root + "/gpio" + gpio + "/edge", edge);
}

void ReceiverLines::configureHardwareResetPin() const {
  configureLinuxGpioControl(std::string(m_is_n2 ? N2_LINE : USUAL_LINE), "out", "none");
}

void ReceiverLines::hardwareResetUblox() const {
  File line(valuePath(m_is_n2 ? N2_LINE : USUAL_LINE), O_WRONLY);
  LOG.notice("hardwareResetUblox fd = ", line.fd());
  if (line.fd() < 1) {  // 0 is standard input, which is a failure too
    configureHardwareResetPin();
    line.reopen(valuePath(USUAL_LINE), O_WRONLY);  // on every variant
    if (line.fd() < 1) {
      LOG.error("Can not open hardwareResetUblox gpio. fd = ", line.fd());
      return;
    }
  }
  LOG.notice("hardwareResetUblox res = ", line.write({LOW, sizeof LOW}));
  time_source().sleep_ns(PULSE_NS);
  LOG.notice("hardwareResetUblox res = ", line.write({HIGH, sizeof HIGH}));
}

}  // namespace ecu::koru::gpspub
