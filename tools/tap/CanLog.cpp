#include "tools/tap/CanLog.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "tools/tap/CanFrame.h"
#include "tools/tap/Decode.h"

namespace ecu::koru::tap {

namespace {

constexpr mode_t OWNER_ONLY = 0600;
constexpr std::string_view OEM_TOPICS = "rt/oemcan/";

}  // namespace

CanLog::~CanLog() {
  if (m_fd >= 0) ::close(m_fd);
}

bool CanLog::open() {
  m_fd = ::open(m_options.file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, OWNER_ONLY);
  if (m_fd < 0) m_error = errno;
  struct stat status {};
  if (m_fd >= 0 && ::fstat(m_fd, &status) == 0 && S_ISREG(status.st_mode))
    static_cast<void>(::fchmod(m_fd, OWNER_ONLY));  // the file may have existed already
  return m_fd >= 0;
}

std::vector<std::string> CanLog::topics() const {
  std::vector<std::string> out;
  for (const auto& group : rt::SignalAdapter::instance().database()->groups()) {
    for (const auto& topic : {group.tx_topic, group.rx_topic}) {
      if (!topic.empty()) out.push_back(topic);
    }
  }
  return out;
}

void CanLog::take(const Arrival& arrival) {
  if (arrival.retained) return;
  const Decoded decoded = decode(arrival.topic, arrival.payload);
  if (!decoded.group.is_valid()) return;
  const auto& interface =
      arrival.topic.starts_with(OEM_TOPICS) ? m_options.oem_interface : m_options.interface;
  write(candump_line(arrival.wall_us, interface, decoded.group, m_options.source_address));
}

std::string CanLog::problem() const {
  return m_error != 0 ? cannot_write(m_options.file, m_error) : std::string();
}

void CanLog::write(std::string_view line) {
  while (!line.empty()) {
    const ssize_t written = ::write(m_fd, line.data(), line.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) {
      m_error = written < 0 ? errno : ENOSPC;
      finish();
      return;
    }
    line.remove_prefix(static_cast<size_t>(written));
  }
}

}  // namespace ecu::koru::tap
