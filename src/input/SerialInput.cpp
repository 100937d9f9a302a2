#include "input/SerialInput.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <utility>

#include "wire/HexDump.h"
#include "wire/ServiceLog.h"

namespace ecu::koru::gpspub {

namespace {

constexpr unsigned OPEN_FAILURES_PER_LOG = 32;
constexpr int MAX_ONE_LINE_DUMP = 30;

std::string octal(unsigned value) {
  char digits[12];
  return {digits, std::to_chars(digits, digits + sizeof digits, value, 8).ptr};
}

}  // namespace

bool SerialInput::connect() {
  static unsigned open_failures = 0;  // of the process: a device that comes and goes is not logged each time
  disconnect();
  m_device_gone = false;
  m_received.forgetUnpacedBytes();
  LOG.detail(logflag::CONNECTION, "connectSerial to ", [&] { return logging::escaped(m_gnss_device); });
  m_fd_serial = m_device->open(m_gnss_device);
  if (m_fd_serial < 0) {
    const int error = errno;
    m_fd_serial = -1;
    if (open_failures++ % OPEN_FAILURES_PER_LOG == 0) {
      LOG.error("Error to open serial device ", logging::escaped(m_gnss_device), " errno = ", error);
    }
    errno = error;
    return false;
  }
  applyAttributes();
  if (std::exchange(m_drop_device_input, false)) m_device->dropInput(m_fd_serial);
  return true;
}

void SerialInput::applyAttributes() {
  termios attributes{};
  bool failed = m_device->getAttributes(m_fd_serial, attributes) != 0;
  logAttributes(attributes);
  cfmakeraw(&attributes);
  cfsetispeed(&attributes, m_baud.code());
  cfsetospeed(&attributes, m_baud.code());
  attributes.c_cc[VTIME] = 1;  // 0.1 s
  attributes.c_cc[VMIN] = 80;
  failed = m_device->setAttributes(m_fd_serial, attributes) != 0 || failed;
  m_is_terminal = !failed;
  if (failed && !std::exchange(m_attributes_failure_logged, true)) {
    LOG.warning(logging::escaped(m_gnss_device), " does not take serial port settings, errno = ", errno,
                ". It is read as it is.");
  }
}

void SerialInput::logAttributes(const termios& attributes) const {
  const termios& t = attributes;
  LOG.detail(logflag::CONNECTION, "OCTAL OCTAL newtio cflag ", octal(t.c_cflag), " iflag ", octal(t.c_iflag),
             " oflag ", octal(t.c_oflag), " lflag ", octal(t.c_lflag), " line  ", octal(t.c_line),
             " c_cc[5] ", octal(t.c_cc[5]), " c_cc[6] ", octal(t.c_cc[6]), " ispeed ", octal(t.c_ispeed),
             " ospeed ", octal(t.c_ospeed));
  LOG.detail(logflag::CONNECTION, "HEX c_cc ", hexDumpMessage(t.c_cc, NCCS, 0, 10, true));
  LOG.detail(logflag::CONNECTION, "cfgetispeed() ", octal(cfgetispeed(&t)), " cfgetspeed() ",
             octal(cfgetospeed(&t)), " baud rate ", m_baud.bitsPerSecond());
}

void SerialInput::disconnect() {
  m_readable = false;
  if (m_fd_serial != -1) m_device->close(std::exchange(m_fd_serial, -1));
}

bool SerialInput::waiting(int timeout_us) {
  const int unread = m_received.bytesWaiting() - m_received.bytesRead();
  if (m_received.bytesRead() != 0 && unread != 0) {
    LOG.detail(logflag::WAITING_HELD, "\t\t\tSerialInput::waiting. Bytes to process ", unread);
    return true;
  }
  const int result = m_device->waitReadable(m_fd_serial, timeout_us, m_wake);
  if (result < 0 && errno != EINTR) m_device_gone = true;
  LOG.detail(logflag::WAITING, "SerialInput::waiting select result ", result);
  m_readable = result > 0;
  return m_readable;
}

bool SerialInput::read() {
  if (m_received.nextItem("\t\t\tSerialInput read parseLine = false  m_bytes_waiting ")) return true;
  if (m_received.freeBytes() <= 0) m_received.dump("SerialInput::read exceeded INPUT_BUFFER_SIZE. Dumping ");
  if (!m_readable && !waiting(0)) {
    LOG.detail(logflag::READS, "No bytes waiting DO NOT READ.");
    return false;
  }
  m_readable = false;
  const int count = readDevice();
  if (count == 0) return false;
  const bool framed = m_received.frameNewBytes(m_is_terminal ? 0 : count);  // a terminal is paced by its line
  LOG.detail(logflag::READS_PARSED,
             framed ? "SerialInput parseLine true  m_bytes_waiting "
                    : "SerialInput parseLine false  m_bytes_waiting ",
             m_received.bytesWaiting());
  return framed;
}

/// Reads only the bytes that are there: a longer read would wait for the gap that ends a burst (VTIME). The
/// kernel may hand them over in pieces of 64. Returns the number of bytes read.
int SerialInput::readDevice() {
  const int there = m_device->bytesReadable(m_fd_serial);
  const auto tail = m_received.freeTail();
  const size_t max = there > 0 ? std::min(static_cast<size_t>(there), tail.size()) : tail.size();
  size_t count = 0;
  ssize_t res = 0;
  do {
    res = m_device->read(m_fd_serial, tail.data() + count, max - count);
    if (res > 0) count += static_cast<size_t>(res);
  } while (res > 0 && there > 0 && count < max);
  if (res <= 0) {
    m_device_gone = res == 0 || (errno != EINTR && errno != EAGAIN);
    LOG.detail(logflag::READS, " res = ", res, " m_bytes_read ", m_received.bytesRead());
  }
  m_received.add(static_cast<int>(count));
  return static_cast<int>(count);
}

int SerialInput::sendBinary(const unsigned char* data, int len) {
  ssize_t res = -1;
  do {
    // A line that takes nothing (flow control, a peer that does not read) must not stop the service.
    const bool takes = m_device->isWritable(m_fd_serial);
    res = takes ? m_device->write(m_fd_serial, data, static_cast<size_t>(len)) : -1;
  } while (res < 0 && errno == EINTR);  // a signal came before the first byte was taken
  if (res < 0) {
    LOG.error("Error sendBinary m_fd_serial ", m_fd_serial, " errno = ", errno);
  } else {
    logSent(data, len);
  }
  return static_cast<int>(res);
}

void SerialInput::logSent(const unsigned char* data, int len) const {
  const bool one_line = len <= MAX_ONE_LINE_DUMP;
  const auto bytes = [&] { return one_line ? "    " + hexText(data, len) : "\n" + hexLines(data, len); };
  LOG.detail(logflag::BYTES_SENT,
             one_line ? "SerialInput::sendBinary Message len  " : "sendBinary Message len ", len, bytes);
}

}  // namespace ecu::koru::gpspub
