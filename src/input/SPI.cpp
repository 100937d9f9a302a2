#include "input/SPI.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "platform/base/Time.h"
#include "wire/HexDump.h"
#include "wire/ServiceLog.h"

namespace ecu::koru::gpspub {

namespace {

constexpr int POLL_LEN = 8;
constexpr int LONGEST_POLL_SLICE_US = 100'000;
constexpr int POLL_TRANSFER_US = 8'000;  // part of a slice kept for the transfer
constexpr unsigned FAILURES_PER_LOG = 32;
constexpr int MAX_ONE_LINE_DUMP = 30;
/// A receiver keeps far fewer while nobody reads.
constexpr int MAX_OLD_BLOCKS = 40;

constexpr int64_t NS_PER_US = 1'000;
/// After a failure or an idle block; with TX-ready control there are no slices to wait for.
constexpr int64_t SHORTEST_PAUSE_NS = 10'000'000;
constexpr int64_t GONE_NS = 1'000'000'000;
constexpr int64_t FAILURE_FORGOTTEN_NS = 10'000'000'000;
/// A receiver at work announces something every second.
constexpr int64_t LINE_SILENT_NS = 2'000'000'000;
/// Reading kept bytes over a slow bus must not hold up a stop.
constexpr int64_t MAX_CATCH_UP_NS = 500'000'000;

// The driver takes the words with their terminating NUL.
constexpr char IN[] = "in";
constexpr char FALLING[] = "falling";

int64_t nowNs() {
  return time_source().steady_ns();
}

bool isIdle(std::span<const unsigned char> bytes) {
  return std::all_of(bytes.begin(), bytes.end(), [](unsigned char byte) { return byte == SPI::FILL; });
}

}  // namespace

SPI::SPI(std::unique_ptr<IDeviceFiles> device)
    : m_device(std::move(device)),
      m_tx_buffer(static_cast<size_t>(m_spi_buffer_size), FILL),
      m_rx_buffer(static_cast<size_t>(m_spi_buffer_size), FILL) {
  m_transfer.tx_buf = reinterpret_cast<uintptr_t>(m_tx_buffer.data());
  m_transfer.rx_buf = reinterpret_cast<uintptr_t>(m_rx_buffer.data());
}

SPI::~SPI() {
  disconnect();
  closeGpioTxRdy();
}

// -- Connection

bool SPI::connect() {
  static unsigned open_failures = 0;  // of the process: a device that comes and goes is not logged each time
  disconnect();
  m_device_gone = false;
  m_received.forgetUnpacedBytes();
  configureGpioTxRdy();
  LOG.detail(logflag::CONNECTION, "SPI connect to ", [&] { return logging::escaped(m_gnss_device); });
  m_fd_serial = m_device->open(m_gnss_device, O_RDWR);
  if (m_fd_serial < 0) {
    const int error = errno;
    m_fd_serial = -1;
    if (open_failures++ % FAILURES_PER_LOG == 0) {
      LOG.error("Error to open SPI serial device ", logging::escaped(m_gnss_device), " errno = ", error, " ",
                std::strerror(error));
    }
    errno = error;
    return false;
  }
  if (std::exchange(m_drop_device_input, false)) dropDeviceInput();
  return true;
}

void SPI::disconnect() {
  setTxReadyCheck(false);
  if (isDeviceGone()) m_drop_device_input = true;
  if (m_fd_serial != -1) m_device->close(std::exchange(m_fd_serial, -1));
}

void SPI::dropDeviceInput() {
  const int64_t end_ns = nowNs() + MAX_CATCH_UP_NS;
  for (int i = 0; i < MAX_OLD_BLOCKS && nowNs() < end_ns; ++i) {
    const int res = clockIn(m_spi_block);
    if (res <= 0 || isIdle(received(res))) return;
  }
}

// -- The TX-ready line

/// Logs a failure once, however many connects it lasts.
void SPI::configureGpioTxRdy() {
  closeGpioTxRdy();
  const bool log = !m_gpio_failure_logged;
  if (m_gpio.openValue(O_RDONLY) < 0) {
    if (log) LOG.notice("Path not configured. Error to open ", m_gpio.valuePath());
    exportGpio(log);
    const bool opened = m_gpio.openValue(O_RDONLY) >= 0;
    if (!opened && log) LOG.error("Error to open ", m_gpio.valuePath(), " errno = ", errno);
  }
  const bool is_input = writeSetting(m_gpio.directionPath(), {IN, sizeof IN}, log);
  const bool has_edge = writeSetting(m_gpio.edgePath(), {FALLING, sizeof FALLING}, log);
  if (!is_input || !has_edge) closeGpioTxRdy();
  m_gpio_failure_logged = m_gpio.fd() < 0;
}

void SPI::exportGpio(bool log) {
  const auto result = m_gpio.exportLine();
  if (result == GpioLine::Result::DONE) {
    m_gpio.beginPermissionWait();
  } else if (log && result == GpioLine::Result::NOT_OPENED) {
    LOG.error("Error to open /sys/class/gpio/export. errno = ", errno);
  } else if (log) {
    LOG.error("Error writing ", m_gpio_number, " to sys/class/gpio/export. errno = ", errno);
  }
}

/// The log record says "in" for the edge as well.
bool SPI::writeSetting(const std::string& path, std::string_view value, bool log) {
  const bool written = m_gpio.writeSetting(path, value) == GpioLine::Result::DONE;
  if (!written && log) LOG.error("Error writing 'in' to ", path, " errno = ", errno);
  return written;
}

void SPI::closeGpioTxRdy() {
  if (m_gpio.closeValue() < 0) LOG.error("close error ", m_gpio.valuePath(), " errno = ", errno);
}

void SPI::setTxReadyCheck(bool on) {
  m_ublox_txrdy_configured = on;
  m_has_gpio_txrdy_control = on;
  m_line_active_ns = nowNs();
}

// -- Waiting

bool SPI::waiting(int timeout_us) {
  if (timeout_us <= 0) return false;
  const bool control = m_has_gpio_txrdy_control;
  const int count = control ? 1 : (timeout_us - 1) / LONGEST_POLL_SLICE_US + 1;
  int slave_timeout_us = timeout_us / count;
  if (!control && slave_timeout_us > POLL_TRANSFER_US) slave_timeout_us -= POLL_TRANSFER_US;
  m_woken = false;
  bool ret = false;
  for (int i = 0; i < count && !ret && !m_woken && !isDeviceGone(); ++i) ret = waitingSlave(slave_timeout_us);
  LOG.detail(logflag::START_UP, "SPI::waiting  hasGpioTxRdyControl() ", m_has_gpio_txrdy_control, " count ",
             count, " slave_timeout_us ", slave_timeout_us, " ret ", ret);
  return ret;
}

bool SPI::waitingSlave(int slice_us) {
  m_slice_end_ns = m_has_gpio_txrdy_control ? 0 : nowNs() + slice_us * NS_PER_US;
  const int held = m_received.bytesWaiting();
  if (held != m_received.bytesRead()) {
    LOG.detail(logflag::WAITING_HELD, "\t\t\tSPI::waitingSlave. Bytes to process ",
               held - m_received.bytesRead(), " bytes_waiting ", held);
    return true;
  }
  return m_has_gpio_txrdy_control ? waitTxReady(slice_us) : pollSlave();
}

bool SPI::pollSlave() {
  const int64_t begin_ns = nowNs();
  const int res = clockIn(POLL_LEN);
  if (res <= 0) {
    readFailed(res);
    return false;
  }
  const int64_t SPI_read_time_us = (nowNs() - begin_ns) / NS_PER_US;
  if (isIdle(received(res))) {
    LOG.detail(logflag::WAITING, "waitingSlave() m_bytes_waiting ", m_received.bytesWaiting(),
               " and 0xFF. res = ", res);
    sleepRestOfSlice(0);
    return false;
  }
  m_received.append(received(res));
  LOG.detail(logflag::START_UP, "waitingSlave() GOOD no 0xFF. m_bytes_waiting ", m_received.bytesWaiting(),
             ". res = ", res, " SPI_read_time_us ", SPI_read_time_us);
  return true;
}

bool SPI::waitTxReady(int slice_us) {
  const int64_t begin_ns = nowNs();
  const int level = readGpioTxRdyPin();
  const int64_t until_probe_ns = m_line_active_ns + LINE_SILENT_NS - begin_ns;
  if (level > 0 && until_probe_ns <= 0) return probeSilentLine();
  const auto until_probe_us = static_cast<int>((until_probe_ns + NS_PER_US - 1) / NS_PER_US);
  const int ret = level > 0 ? m_gpio.waitForEdge(std::min(slice_us, until_probe_us), m_wake) : level;
  if (ret < 0 && (level < 0 || errno != EINTR)) {
    loseLine("it cannot be read");
    return false;
  }
  const bool ready = level == 0 || ret > 0;
  if (ready) m_line_active_ns = nowNs();
  LOG.detail(logflag::WAITING, "  SPI select Waiting ret = ", ret,
             " m_ublox_txrdy_configured = ", m_ublox_txrdy_configured,
             " hasGpioTxRdyControl = ", m_has_gpio_txrdy_control, " m_fd_gpio_txrdy = ", m_gpio.fd(),
             " diff_us ", (nowNs() - begin_ns) / NS_PER_US);
  return ready;
}

/// Polls every two seconds, so that a line stuck high does not stop the fixes.
bool SPI::probeSilentLine() {
  m_line_active_ns = nowNs();
  if (!pollSlave()) return false;
  if (readGpioTxRdyPin() != 0) loseLine("it announces nothing");  // at 0 it has just become ready
  return true;
}

void SPI::loseLine(const char* why) {
  if (m_gpio.fd() >= 0) LOG.warning("TX-ready line ", m_gpio.valuePath(), " lost: ", why);
  closeGpioTxRdy();
  setTxReadyCheck(false);
}

void SPI::sleepRestOfSlice(int64_t at_least_ns) {
  const int64_t left_ns = std::max(m_slice_end_ns - nowNs(), at_least_ns);
  if (m_wake != nullptr) {
    m_woken = time_source().wait_ns(*m_wake, left_ns);
  } else {
    time_source().sleep_ns(left_ns);
  }
}

// -- Reading and sending

bool SPI::read() {
  if (m_received.nextItem("\t\t\tSPI read parseLine = false  m_bytes_waiting ")) return true;
  if (m_received.freeBytes() <= m_spi_block)
    m_received.dump("SPI::read would exceeded INPUT_BUFFER_SIZE. Dumping ");
  const int64_t begin_ns = nowNs();
  const int res = clockIn(m_spi_block);
  if (res <= 0) {
    readFailed(res);
    return false;
  }
  const int64_t SPI_read_time_us = (nowNs() - begin_ns) / NS_PER_US;
  const bool idle = isIdle(received(res));
  m_received.append(received(res));
  const bool framed = m_received.frameNewBytes(idle ? 0 : res);
  LOG.detail(logflag::READS_PARSED,
             framed ? "SPI parseLine true  m_bytes_waiting " : "SPI parseLine false  m_bytes_waiting ",
             m_received.bytesWaiting(), " SPI_read_time_us ", SPI_read_time_us);
  // A line that says "ready" without data must not make this thread spin.
  if (idle && !framed && m_has_gpio_txrdy_control) sleepRestOfSlice(SHORTEST_PAUSE_NS);
  return framed;
}

int SPI::sendBinary(const unsigned char* data, int len) {
  int res = -1;
  if (len > m_spi_buffer_size) {
    errno = EMSGSIZE;
  } else {
    readAhead();
    std::copy_n(data, len, m_tx_buffer.begin());
    res = transfer(len);
  }
  if (res < 0) {
    LOG.error("Error sendBinary m_fd_serial ", m_fd_serial, " errno = ", errno);
  } else {
    logSent(data, len, res);
  }
  return res;
}

void SPI::logSent(const unsigned char* data, int len, int res) {
  const bool one_line = len <= MAX_ONE_LINE_DUMP;
  const auto bytes = [&] { return one_line ? "    " + hexText(data, len) : "\n" + hexLines(data, len); };
  LOG.detail(logflag::BYTES_SENT, one_line ? "SPI::sendBinary Message res " : "SPI sendBinary Message res ",
             res, " len ", len, bytes);
}

/// Leaves the framed item where it is, because its handler may be the sender.
void SPI::readAhead() {
  const int64_t end_ns = nowNs() + MAX_CATCH_UP_NS;
  while (m_received.freeBytesAtTheEnd() >= m_spi_block && nowNs() < end_ns) {
    const int res = clockIn(m_spi_block);
    if (res <= 0 || isIdle(received(res))) return;
    m_received.append(received(res));
  }
}

int SPI::clockIn(int len) {
  std::fill_n(m_tx_buffer.begin(), len, FILL);
  return transfer(len);
}

/// Returns the number of bytes transferred; 0 or less is a failure.
int SPI::transfer(int len) {
  m_transfer.len = static_cast<uint32_t>(len);
  const int res = std::min(m_device->transfer(m_fd_serial, m_transfer), len);
  if (res <= 0) {
    noteFailure();
    return res;
  }
  m_first_failure_ns = 0;
  if (m_failure_told && nowNs() - m_last_failure_ns > FAILURE_FORGOTTEN_NS) m_failure_told = false;
  return res;
}

void SPI::noteFailure() {
  m_last_failure_ns = nowNs();
  if (m_first_failure_ns == 0) m_first_failure_ns = m_last_failure_ns;
  if (m_last_failure_ns - m_first_failure_ns >= GONE_NS) m_device_gone = true;
}

/// Logs a failure once, however long it lasts, and keeps a failing device from making this thread spin.
void SPI::readFailed(int res) {
  const int error = errno;
  if (!std::exchange(m_failure_told, true)) {
    if (res < 0) {
      LOG.error("read error from ", logging::escaped(m_gnss_device), " errno = ", error, " ",
                std::strerror(error));
    } else {
      LOG.error("read error");
    }
  }
  sleepRestOfSlice(SHORTEST_PAUSE_NS);
}

}  // namespace ecu::koru::gpspub
