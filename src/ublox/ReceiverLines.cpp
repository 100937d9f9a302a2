#include "ublox/ReceiverLines.h"

#include <fcntl.h>

#include <cerrno>
#include <utility>

#include "wire/ServiceLog.h"
#include "wire/Stopwatch.h"

namespace ecu::koru::gpspub {

namespace {

constexpr int64_t PULSE_US = 500'000;

/// Waits for permission whether or not this process exported the line.
void writeSetting(GpioLine& line, const std::string& path, const std::string& value) {
  line.beginPermissionWait();
  const auto result = line.writeSetting(path, value);
  if (result == GpioLine::Result::NOT_OPENED) {
    LOG.error("Error to open ", path, " errno = ", errno);
  } else if (result == GpioLine::Result::NOT_WRITTEN) {
    LOG.error("Error writing '", value, "' to ", path, " errno = ", errno);
  }
}

}  // namespace

ReceiverLines::ReceiverLines(std::string reset_line, std::string root)
    : m_reset_line(std::move(reset_line)), m_root(std::move(root)) {}

void ReceiverLines::configureLinuxGpioControl(const std::string& gpio, const std::string& direction,
                                              const std::string& edge) const {
  GpioLine line(*m_files, gpio, m_root);
  const auto exported = line.exportLine();
  if (exported == GpioLine::Result::NOT_OPENED) {
    LOG.error("Error to open /sys/class/gpio/export. errno = ", errno);
  } else if (exported == GpioLine::Result::NOT_WRITTEN) {
    LOG.error("Error writing '", gpio, "' to sys/class/gpio/export.", " errno = ", errno);
  }
  writeSetting(line, line.directionPath(), direction);
  writeSetting(line, line.edgePath(), edge);
}

void ReceiverLines::configureHardwareResetPin() const {
  configureLinuxGpioControl(m_reset_line, "out", "none");
}

void ReceiverLines::hardwareResetUblox() {
  if (m_low_line) return;  // a pulse is under way
  auto line = std::make_unique<GpioLine>(*m_files, m_reset_line, m_root);
  LOG.notice("hardwareResetUblox fd = ", line->openValue(O_WRONLY));
  if (line->fd() < 1) {  // 0 is standard input, which is a failure too
    configureHardwareResetPin();
    line = std::make_unique<GpioLine>(*m_files, USUAL_LINE, m_root);  // the fallback on every hardware
    if (line->openValue(O_WRONLY) < 1) {
      LOG.error("Can not open hardwareResetUblox gpio. fd = ", line->fd());
      return;
    }
  }
  LOG.notice("hardwareResetUblox res = ", line->setLevel(false));
  m_low_line = std::move(line);
  m_reset_due = GnssUtils::getMicrosecDuration(0) + PULSE_US;
}

void ReceiverLines::checkReset(int64_t now_us) {
  if (now_us >= resetDue()) releaseReset();
}

void ReceiverLines::finishReset() {
  if (!m_low_line) return;
  time_source().sleep_ns((m_reset_due - GnssUtils::getMicrosecDuration(0)) * 1000);
  releaseReset();
}

void ReceiverLines::releaseReset() {
  LOG.notice("hardwareResetUblox res = ", m_low_line->setLevel(true));
  m_low_line.reset();
}

}  // namespace ecu::koru::gpspub
