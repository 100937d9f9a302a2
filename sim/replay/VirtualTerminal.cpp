#include "sim/replay/VirtualTerminal.h"

#include <algorithm>
#include <array>
#include <cerrno>

#include "input/BaudRate.h"

namespace ecu::koru::sim {

namespace {
constexpr int FD = 7;  // any number will do: only this class sees it
}  // namespace

int VirtualTerminal::open(const std::string& /*path*/) {
  m_link.advance_to(m_time.now_us());
  if (const int error = m_link.open_error(); error != 0) return errno = error, -1;
  m_link.set_open(true);
  m_time.advance_to_us(m_link.done_us());
  return FD;
}

int VirtualTerminal::close(int /*fd*/) {
  m_link.advance_to(m_time.now_us());
  m_link.set_open(false);
  m_time.advance_to_us(m_link.done_us());
  return 0;
}

ssize_t VirtualTerminal::read(int /*fd*/, void* data, size_t max) {
  if (m_link.is_gone()) return 0;
  return static_cast<ssize_t>(m_link.read({static_cast<uint8_t*>(data), max}));
}

ssize_t VirtualTerminal::write(int /*fd*/, const void* data, size_t len) {
  m_link.advance_to(m_time.now_us());
  m_link.write({static_cast<const uint8_t*>(data), len});
  m_time.advance_to_us(m_link.done_us());
  return static_cast<ssize_t>(len);
}

int VirtualTerminal::waitReadable(int /*fd*/, int timeout_us, WakeUp* wake) {
  m_link.wait_begins();
  const int64_t end = m_time.now_us() + timeout_us;
  for (;;) {
    m_link.advance_to(m_time.now_us());
    if (m_link.available() > 0) return 1;
    // A service that closes the port just then is not told that the device is gone.
    if (m_time.now_us() >= end) return 0;
    if (wake->pending()) return wake->clear(), 0;
    if (m_link.is_gone()) return 1;
    m_time.step_towards_us(std::clamp(m_link.next_byte_us(), m_time.now_us() + 1, end));
  }
}

void VirtualTerminal::dropInput(int /*fd*/) {
  std::array<uint8_t, 4096> sink{};
  while (m_link.available() > 0) m_link.read(sink);
}

int VirtualTerminal::setAttributes(int /*fd*/, const termios& attributes) {
  if (!m_link.is_terminal()) return errno = ENOTTY, -1;
  m_link.set_host_baud(gpspub::BaudRate::bitsPerSecond(cfgetispeed(&attributes)));
  return 0;
}

}  // namespace ecu::koru::sim
