#include "tools/tap/Viewer.h"

#include <sys/ioctl.h>
#include <unistd.h>

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
  const bool written = m_standard_output.write(line);
  if (written) ++m_seen;
  if (!written || m_seen == m_options.count) finish();
}

}  // namespace ecu::koru::tap
