#include "tools/tap/Viewer.h"

#include <cerrno>
#include <cstdio>

#include "tools/tap/Lines.h"

namespace ecu::koru::tap {

void Viewer::message(const std::string& topic, const com::Message& message) {
  // A message arrives once for every filter that it matches.
  const bool again = message.timestamp_ns == m_last_ns && topic == m_last_topic;
  if (again || m_finished.raised()) return;
  m_last_ns = message.timestamp_ns;
  m_last_topic = topic;
  const Arrival arrival{.topic = topic,
                        .payload = message.payload,
                        .wall_us = wall_us_of(message.timestamp_ns),
                        .boot_ns = message.timestamp_ns,
                        .retained = message.retained};
  const std::string line = m_style.json ? json_line(arrival) + "\n" : human_line(arrival, m_style.sentences);
  errno = 0;
  const bool written =
      std::fwrite(line.data(), 1, line.size(), stdout) == line.size() && std::fflush(stdout) == 0;
  if (written) {
    ++m_seen;
  } else if (errno != EPIPE) {
    m_write_error = errno;
  }
  if (!written || m_seen == m_style.count) m_finished.raise();
}

}  // namespace ecu::koru::tap
