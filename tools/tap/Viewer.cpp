#include "tools/tap/Viewer.h"

#include <cerrno>
#include <cstdio>

#include "tools/tap/Lines.h"

namespace ecu::koru::tap {

void Viewer::take(const Arrival& arrival) {
  const std::string line =
      m_options.json ? json_line(arrival) + "\n" : human_line(arrival, m_options.sentences);
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
