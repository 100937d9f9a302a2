#include "tools/tap/Viewer.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "tools/tap/Lines.h"

namespace ecu::koru::tap {

namespace {

/// Returns the columns of the terminal that is standard output; 0 if it is not a terminal.
size_t terminal_width() {
  winsize size{};
  return ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;
}

}  // namespace

void Viewer::take(const Arrival& arrival) {
  if (m_options.changes && !m_changes.differs(arrival)) return;
  const std::string line = m_options.json
                               ? json_line(arrival) + "\n"
                               : wrapped(human_line(arrival, m_options.sentences), terminal_width());
  errno = 0;
  const bool written =
      std::fwrite(line.data(), 1, line.size(), stdout) == line.size() && std::fflush(stdout) == 0;
  if (written) {
    ++m_seen;
  } else if (errno != EPIPE) {
    m_write_error = errno;
  }
  if (!written || m_seen == m_options.count) finish();
}

std::string Viewer::problem() const {
  return m_write_error != 0 ? cannot_write("", m_write_error) : std::string();
}

}  // namespace ecu::koru::tap
