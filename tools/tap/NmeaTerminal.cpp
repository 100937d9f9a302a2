#include "tools/tap/NmeaTerminal.h"

#include <fcntl.h>
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <filesystem>
#include <utility>

namespace ecu::koru::tap {

namespace {

constexpr std::string_view TERMINALS = "/dev/pts/";

std::string target_of(const std::string& link) {
  std::error_code error;
  const auto target = std::filesystem::read_symlink(link, error);
  return error ? std::string() : target.string();
}

bool make_raw(int reader_end) {
  termios attributes{};
  if (tcgetattr(reader_end, &attributes) != 0) return false;
  cfmakeraw(&attributes);
  cfsetspeed(&attributes, B38400);  // for readers that look; the speed has no effect
  return tcsetattr(reader_end, TCSANOW, &attributes) == 0;
}

/// Opens the readers' end for a moment. Returns false if that or `use` fails.
template <typename Use>
bool with_reader_end(const std::string& path, Use use) {
  const int reader_end = ::open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  if (reader_end < 0) return false;
  const bool good = use(reader_end);
  ::close(reader_end);
  return good;
}

}  // namespace

NmeaTerminal::~NmeaTerminal() {
  if (m_linked && target_of(m_link) == m_path) unlink(m_link.c_str());
}

bool NmeaTerminal::open() {
  if (!create()) return fail(std::string("cannot create a pseudo-terminal: ") + std::strerror(errno));
  if (target_of(m_link).starts_with(TERMINALS)) unlink(m_link.c_str());
  m_linked = symlink(m_path.c_str(), m_link.c_str()) == 0;
  return m_linked || fail("cannot create the link " + m_link + ": " + std::strerror(errno));
}

bool NmeaTerminal::create() {
  const int master = posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  if (master < 0) return false;
  m_master = std::make_unique<tool::Descriptor>(master, "pseudo-terminal");
  char path[PATH_MAX];
  if (grantpt(master) != 0 || unlockpt(master) != 0 || ptsname_r(master, path, sizeof path) != 0)
    return false;
  m_path = path;
  // Only after the first close does the terminal report that nobody has it open.
  return with_reader_end(m_path, make_raw);
}

void NmeaTerminal::add_waits(std::vector<pollfd>& waits) const {
  NmeaFeed::add_waits(waits);
  if (has_reader()) waits.push_back({m_master->fd(), POLLIN, 0});  // otherwise it is always ready
}

void NmeaTerminal::hand_over(std::string_view sentences) {
  if (m_path.empty()) return;
  const bool had_reader = std::exchange(m_has_reader, has_reader());
  if (m_has_reader) {
    discard_received();
    if (!write(sentences)) {  // the reader sleeps: give it the newest ones
      discard_unread();
      static_cast<void>(write(sentences));
    }
  } else if (had_reader) {
    discard_unread();
  }
}

bool NmeaTerminal::has_reader() const {
  pollfd state{m_master->fd(), 0, 0};
  return poll(&state, 1, 0) >= 0 && (state.revents & POLLHUP) == 0;
}

void NmeaTerminal::discard_received() const {
  char bytes[512];
  while (::read(m_master->fd(), bytes, sizeof bytes) > 0) continue;
}

void NmeaTerminal::discard_unread() const {
  with_reader_end(m_path, [](int reader_end) { return tcflush(reader_end, TCIFLUSH) == 0; });
}

bool NmeaTerminal::write(std::string_view sentences) const {
  while (!sentences.empty()) {
    const ssize_t count = ::write(m_master->fd(), sentences.data(), sentences.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    sentences.remove_prefix(static_cast<size_t>(count));
  }
  return true;
}

}  // namespace ecu::koru::tap
