#include "sim/gnss/Pty.h"

#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <filesystem>
#include <system_error>

namespace ecu::koru::sim {
namespace {

struct Speed {
  speed_t code;
  unsigned baud;
};
constexpr std::array<Speed, 11> SPEEDS{{{B1200, 1200},
                                        {B2400, 2400},
                                        {B4800, 4800},
                                        {B9600, 9600},
                                        {B19200, 19200},
                                        {B38400, 38400},
                                        {B57600, 57600},
                                        {B115200, 115200},
                                        {B230400, 230400},
                                        {B460800, 460800},
                                        {B921600, 921600}}};

[[noreturn]] void fail(const std::string& what) {
  throw std::system_error(errno, std::generic_category(), what);
}

Descriptor open_slave(const std::string& path) {
  return {open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC), path};
}

std::string slave_path(int master) {
  char path[PATH_MAX];
  if (ptsname_r(master, path, sizeof path) != 0) fail("no name for the pseudo-terminal");
  return path;
}

void make_raw(int slave, unsigned baud) {
  termios attributes{};
  if (tcgetattr(slave, &attributes) != 0) fail("attributes of the pseudo-terminal");
  cfmakeraw(&attributes);
  for (const Speed& speed : SPEEDS)
    if (speed.baud == baud) cfsetspeed(&attributes, speed.code);
  if (tcsetattr(slave, TCSANOW, &attributes) != 0) fail("attributes of the pseudo-terminal");
}

}  // namespace

Pty::Pty(unsigned baud) : m_master(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC), "no pseudo-terminal") {
  const int master = descriptor();
  if (grantpt(master) != 0 || unlockpt(master) != 0 || fcntl(master, F_SETFL, O_NONBLOCK) != 0)
    fail("no pseudo-terminal");
  m_path = slave_path(master);
  // Opens and closes the slave: only after that does the terminal report that nobody has it open.
  make_raw(open_slave(m_path).get(), baud);
}

bool Pty::held() const {
  pollfd state{descriptor(), 0, 0};
  return poll(&state, 1, 0) >= 0 && (state.revents & POLLHUP) == 0;
}

unsigned Pty::host_baud() const {
  termios attributes{};
  if (tcgetattr(descriptor(), &attributes) != 0) return 0;
  const speed_t code = cfgetispeed(&attributes);
  for (const Speed& speed : SPEEDS)
    if (speed.code == code) return speed.baud;
  return 0;
}

size_t Pty::write(std::span<const uint8_t> bytes) {
  size_t written = 0;
  while (written < bytes.size()) {
    const ssize_t count = ::write(descriptor(), bytes.data() + written, bytes.size() - written);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) break;  // full, or closed a moment ago
    written += static_cast<size_t>(count);
  }
  return written;
}

size_t Pty::read(std::span<uint8_t> out) {
  const ssize_t count = ::read(descriptor(), out.data(), out.size());
  return count > 0 ? static_cast<size_t>(count) : 0;
}

void Pty::discard_unread() {
  tcflush(open_slave(m_path).get(), TCIFLUSH);
}

size_t Pty::unread() const {
  int count = 0;
  return ioctl(open_slave(m_path).get(), FIONREAD, &count) == 0 && count > 0 ? static_cast<size_t>(count) : 0;
}

Link::Link(std::string name, std::string target) : m_name(std::move(name)), m_target(std::move(target)) {
  std::error_code ignored;
  if (std::filesystem::is_symlink(m_name, ignored)) unlink(m_name.c_str());
  if (symlink(m_target.c_str(), m_name.c_str()) != 0) fail("link " + m_name);
}

Link::~Link() {
  std::error_code error;
  if (std::filesystem::read_symlink(m_name, error) == m_target && !error) unlink(m_name.c_str());
}

}  // namespace ecu::koru::sim
