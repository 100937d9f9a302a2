#include "input/SerialInput.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <utility>

#include "wire/HexDump.h"
#include "wire/ServiceLog.h"

namespace ecu::koru::gpspub {

namespace {

constexpr int READ_WAIT_US = 100;
constexpr int MAX_UNFRAMED = 65536;
constexpr unsigned OPEN_FAILURES_PER_LOG = 32;
constexpr int MAX_ONE_LINE_DUMP = 30;
constexpr int DUMP_LINE = 50;
constexpr int DUMP_GROUP = 10;

struct Baud {
  unsigned bits_per_second;
  speed_t code;
};
constexpr std::array<Baud, 6> BAUD_RATES{
    {{4800, B4800}, {9600, B9600}, {19200, B19200}, {38400, B38400}, {57600, B57600}, {115200, B115200}}};

// The receiver's own defaults come first, the rates that it rarely has come last.
constexpr std::array<speed_t, 5> HUNTING_ORDER{B19200, B9600, B38400, B57600, B115200};

/// Returns 0 for a code that is not in the table.
unsigned bitsPerSecond(speed_t code) {
  const auto* const rate = std::find_if(BAUD_RATES.begin(), BAUD_RATES.end(),
                                        [=](const Baud& known) { return known.code == code; });
  return rate != BAUD_RATES.end() ? rate->bits_per_second : 0;
}

std::string octal(unsigned value) {
  char digits[12];
  return {digits, std::to_chars(digits, digits + sizeof digits, value, 8).ptr};
}

std::string dump(const unsigned char* data, int len) {
  return hexDumpMessage(data, len, DUMP_LINE, DUMP_GROUP, true);
}

}  // namespace

SerialInput::SerialInput(std::unique_ptr<ITerminalDevice> device)
    : m_device(std::move(device)), m_buffer(std::make_unique<unsigned char[]>(INPUT_BUFFER_SIZE)) {}

SerialInput::~SerialInput() {
  SerialInput::disconnect();
}

bool SerialInput::connect() {
  static unsigned open_failures = 0;
  SerialInput::disconnect();
  beginConnection();
  if (GnssUtils::debugIt(logflag::CONNECTION))
    LOG.detail("connectSerial to ", logging::escaped(m_gnss_device));
  m_fd_serial = m_device->open(m_gnss_device);
  if (m_fd_serial < 0) {
    const int error = errno;
    m_fd_serial = -1;
    if (open_failures++ % OPEN_FAILURES_PER_LOG == 0) {
      LOG.error("Error to open serial device ", logging::escaped(m_gnss_device), " errno = ", error);
    }
    return false;
  }
  applyAttributes();
  if (std::exchange(m_drop_device_input, false)) m_device->dropInput(m_fd_serial);
  return true;
}

void SerialInput::beginConnection() {
  m_device_gone = false;
  m_unframed_bytes = 0;
}

void SerialInput::applyAttributes() {
  termios attributes{};
  bool failed = m_device->getAttributes(m_fd_serial, attributes) != 0;
  if (GnssUtils::debugIt(logflag::CONNECTION)) logAttributes(attributes);
  cfmakeraw(&attributes);
  cfsetispeed(&attributes, m_baud_current);
  cfsetospeed(&attributes, m_baud_current);
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
  LOG.detail("OCTAL OCTAL newtio cflag ", octal(t.c_cflag), " iflag ", octal(t.c_iflag), " oflag ",
             octal(t.c_oflag), " lflag ", octal(t.c_lflag), " line  ", octal(t.c_line), " c_cc[5] ",
             octal(t.c_cc[5]), " c_cc[6] ", octal(t.c_cc[6]), " ispeed ", octal(t.c_ispeed), " ospeed ",
             octal(t.c_ospeed));
  LOG.detail("HEX c_cc ", hexDumpMessage(t.c_cc, NCCS, 0, DUMP_GROUP, true));
  LOG.detail("cfgetispeed() ", octal(cfgetispeed(&t)), " cfgetspeed() ", octal(cfgetospeed(&t)),
             " baud rate ", bitsPerSecond(m_baud_current));
}

void SerialInput::disconnect() {
  if (m_fd_serial == -1) return;
  m_device->close(m_fd_serial);
  m_fd_serial = -1;
}

void SerialInput::clearBuffer() {
  emptyBuffer();
  m_drop_device_input = true;
}

void SerialInput::emptyBuffer() {
  m_front = 0;
  m_bytes_read = 0;
  m_bytes_waiting = 0;
  m_bytes_scanned = 0;
}

bool SerialInput::waiting(int timeout_us) {
  if (m_bytes_read != 0 && m_bytes_waiting != m_bytes_read) {
    if (GnssUtils::debugIt(logflag::WAITING_HELD)) {
      LOG.detail("\t\t\tSerialInput::waiting. Bytes to process ", m_bytes_waiting - m_bytes_read);
    }
    return true;
  }
  const int result = m_device->waitReadable(m_fd_serial, timeout_us);
  if (result < 0 && errno != EINTR) m_device_gone = true;
  if (GnssUtils::debugIt(logflag::WAITING)) LOG.detail("SerialInput::waiting select result ", result);
  return result > 0;
}

bool SerialInput::read() {
  removeFramedItem();
  if (m_bytes_waiting >= MIN_ITEM_LEN) {
    if (frameItem()) return true;
    if (GnssUtils::debugIt(logflag::READS_PARSED)) {
      LOG.detail("\t\t\tSerialInput read parseLine = false  m_bytes_waiting ", m_bytes_waiting);
    }
  }
  if (freeBytes() <= 0) dumpBuffer("SerialInput::read exceeded INPUT_BUFFER_SIZE. Dumping ");
  if (!waiting(READ_WAIT_US)) {
    if (GnssUtils::debugIt(logflag::READS)) LOG.detail("No bytes waiting DO NOT READ.");
    return false;
  }
  const int count = readDevice();
  if (count == 0) return false;
  const bool framed = frameNewBytes(m_is_terminal ? 0 : count);  // a terminal is paced by its line
  if (GnssUtils::debugIt(logflag::READS_PARSED)) {
    LOG.detail(framed ? "SerialInput parseLine true  m_bytes_waiting "
                      : "SerialInput parseLine false  m_bytes_waiting ",
               m_bytes_waiting);
  }
  return framed;
}

bool SerialInput::frameNewBytes(int unpaced_bytes) {
  m_unframed_bytes += unpaced_bytes;
  const bool framed = frameItem();
  if (!framed && m_unframed_bytes > MAX_UNFRAMED) m_device_gone = true;
  return framed;
}

void SerialInput::removeFramedItem() {
  if (m_bytes_read > 0) {
    if (m_bytes_read > m_bytes_waiting || m_bytes_waiting > m_buffer_size) {
      emptyBuffer();
    } else {
      m_front += m_bytes_read;
      m_bytes_waiting -= m_bytes_read;
      m_bytes_read = 0;
      m_bytes_scanned = 0;
    }
  }
  if (m_bytes_waiting == 0) m_front = 0;
}

bool SerialInput::frameItem() {
  while (m_bytes_waiting >= MIN_ITEM_LEN) {
    const auto discarded = m_bytes_discarded;
    if (parseLine()) {
      ++m_num_lines;
      m_unframed_bytes = 0;
      return true;
    }
    if (m_bytes_discarded == discarded) return false;
  }
  return false;
}

void SerialInput::dumpBuffer(const char* text) {
  if (GnssUtils::debugIt(logflag::READS)) LOG.detail(text, dump(getBuffer(), m_bytes_waiting));
  m_bytes_discarded += m_bytes_waiting;
  emptyBuffer();
}

void SerialInput::append(std::span<const unsigned char> bytes) {
  const auto fitting = bytes.first(std::min(bytes.size(), static_cast<size_t>(freeBytes())));
  if (static_cast<size_t>(freeBytesAtTheEnd()) < fitting.size()) (void)freeTail();
  std::copy(fitting.begin(), fitting.end(), getBuffer() + m_bytes_waiting);
  m_bytes_waiting += static_cast<int>(fitting.size());
  m_bytes_discarded += static_cast<long long>(bytes.size() - fitting.size());
}

/// Makes the free end of the buffer as long as possible and returns it.
unsigned char* SerialInput::freeTail() {
  if (m_front > 0) {
    std::memmove(m_buffer.get(), getBuffer(), static_cast<size_t>(m_bytes_waiting));
    m_front = 0;
  }
  return m_buffer.get() + m_bytes_waiting;
}

/// Reads only the bytes that are there: a longer read would wait for the gap that ends a burst (VTIME).
/// Returns the number of bytes read.
int SerialInput::readDevice() {
  const int there = m_device->bytesReadable(m_fd_serial);
  const int max = there > 0 ? std::min(there, freeBytes()) : freeBytes();
  const ssize_t res = m_device->read(m_fd_serial, freeTail(), static_cast<size_t>(max));
  if (res > 0) {
    m_bytes_waiting += static_cast<int>(res);
    return static_cast<int>(res);
  }
  m_device_gone = res == 0 || (errno != EINTR && errno != EAGAIN);
  if (GnssUtils::debugIt(logflag::READS)) LOG.detail(" res = ", res, " m_bytes_read ", m_bytes_read);
  return 0;
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
  } else if (GnssUtils::debugIt(logflag::BYTES_SENT)) {
    logSent(data, len);
  }
  return static_cast<int>(res);
}

void SerialInput::logSent(const unsigned char* data, int len) const {
  if (len <= MAX_ONE_LINE_DUMP) {
    LOG.detail("SerialInput::sendBinary Message len  ", len, "    ", hexDumpMessage(data, len, 0, 0, true));
  } else {
    LOG.detail("sendBinary Message len ", len, "\n", dump(data, len));
  }
}

bool SerialInput::setBaudRate(unsigned int baud) {
  const auto* const rate = std::find_if(BAUD_RATES.begin(), BAUD_RATES.end(),
                                        [=](const Baud& known) { return known.bits_per_second == baud; });
  if (rate == BAUD_RATES.end()) {
    m_baud_current = m_baud_configured;
    return false;
  }
  m_baud_configured = m_baud_current = rate->code;
  return true;
}

unsigned int SerialInput::getBaudRate() {
  const unsigned rate = bitsPerSecond(m_baud_current);
  return rate > 4800 ? rate : 9600;
}

void SerialInput::tryNextBaudRate() {
  const auto* const current = std::find(HUNTING_ORDER.begin(), HUNTING_ORDER.end(), m_baud_current);
  const bool last = current == HUNTING_ORDER.end() || current + 1 == HUNTING_ORDER.end();
  m_baud_current = last ? HUNTING_ORDER.front() : *(current + 1);
}

}  // namespace ecu::koru::gpspub
