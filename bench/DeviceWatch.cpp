#include "bench/DeviceWatch.h"

#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>

#include "platform/base/Time.h"

namespace bench {

DeviceWatch::DeviceWatch(const std::string& device)
    : m_events(inotify_init1(IN_NONBLOCK | IN_CLOEXEC), "inotify_init1") {
  constexpr uint32_t KINDS = IN_OPEN | IN_MODIFY | IN_CLOSE;
  if (inotify_add_watch(m_events.get(), device.c_str(), KINDS) < 0)
    throw std::system_error(errno, std::generic_category(), "watch " + device);
}

std::vector<DeviceWatch::Sight> DeviceWatch::take(int timeout_ms) const {
  pollfd state{m_events.get(), POLLIN, 0};
  (void)poll(&state, 1, timeout_ms);
  const int64_t now_ns = ecu::koru::time_source().boot_ns();
  std::array<char, 4096> records{};
  const ssize_t count = read(m_events.get(), records.data(), records.size());
  std::vector<Sight> sights;
  // A device's records have no name, so all have the same length.
  for (size_t at = 0; static_cast<ssize_t>(at + sizeof(inotify_event)) <= count;
       at += sizeof(inotify_event)) {
    inotify_event record{};
    std::memcpy(&record, records.data() + at, sizeof record);
    if ((record.mask & IN_OPEN) != 0) sights.push_back({Act::OPENED, now_ns});
    if ((record.mask & IN_MODIFY) != 0) sights.push_back({Act::WRITTEN, now_ns});
    if ((record.mask & IN_CLOSE) != 0) sights.push_back({Act::CLOSED, now_ns});
  }
  return sights;
}

}  // namespace bench
