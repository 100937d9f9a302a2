#include "sim/replay/RecordedBus.h"

#include <poll.h>

#include <algorithm>
#include <cstdlib>
#include <set>
#include <utility>

#include "platform/com/Topics.h"
#include "sim/gnss/Files.h"
#include "tools/tap/RecordingReader.h"

namespace ecu::koru::sim {

namespace {

using State = tap::RecordingReader::State;

constexpr int64_t NS_PER_US = 1000;

/// Returns true for the messages that a broker always keeps.
bool is_always_kept(const std::string& topic) {
  return topic.starts_with(topic::VARIABLE_PREFIX) || topic == topic::SYSTEM_PARAMETERS;
}

bool is_heard(const std::string& topic) {
  static const std::set<std::string> TOPICS{topic::TIME_ZONE,         topic::BLACKOUT_MODE,
                                            topic::HW_VERSION,        topic::LOG_CONFIG,
                                            topic::PARAMETER_GNSS_ON, topic::PARAMETER_GPS,
                                            topic::PARAMETER_GLONASS, topic::PARAMETER_GALILEO,
                                            topic::PARAMETER_BEIDOU,  topic::PARAMETER_ANTENNA_ON};
  return is_always_kept(topic) || TOPICS.contains(topic);
}

/// Finds the time since boot at an instant of the system clock, which may be set now and then: the message
/// that came nearest to the instant knows both.
class BootTime {
 public:
  explicit BootTime(int64_t wall_us) : m_wall_us(wall_us) {}
  void see(int64_t wall_us, uint64_t boot_ns) {
    const int64_t boot_us = static_cast<int64_t>(boot_ns) / NS_PER_US;
    const int64_t apart_us = std::abs(wall_us - m_wall_us);
    if (apart_us < m_nearest_us) m_boot_us = boot_us + m_wall_us - wall_us;
    m_nearest_us = std::min(m_nearest_us, apart_us);
    m_last_us = std::max(m_last_us, boot_us);
  }
  [[nodiscard]] int64_t us() const { return m_boot_us; }
  /// Returns the time of the last message.
  [[nodiscard]] int64_t last_us() const { return m_last_us; }

 private:
  const int64_t m_wall_us;
  int64_t m_boot_us = 0;
  int64_t m_nearest_us = INT64_MAX;
  int64_t m_last_us = 0;
};

std::string read_all(tap::RecordingReader& reader, BootTime& link_begin,
                     std::vector<tap::RecordedMessage>& heard) {
  tap::RecordedMessage message;
  State state = State::waiting;
  while (state != State::end) {
    state = reader.next(message);
    if (state == State::waiting) {
      pollfd more{reader.fd(), POLLIN, 0};
      (void)poll(&more, 1, -1);
    } else if (state == State::message) {
      link_begin.see(message.wall_us, message.boot_ns);
      if (is_heard(message.topic)) heard.push_back(std::move(message));
    }
  }
  const auto problems = reader.problems();
  return problems.empty() ? reader.note() : problems.front();
}

Publication publication_of(tap::RecordedMessage& message, bool retained) {
  Publication publication{.topic = message.topic, .message = {}};
  publication.message.payload = std::move(message.payload);
  publication.message.timestamp_ns = message.boot_ns;
  publication.message.valid = true;
  publication.message.retained = retained;
  return publication;
}

}  // namespace

RecordedBus load_recorded_bus(const std::string& path, const LinkRecording& link) {
  tap::RecordingReader reader(path);
  if (!reader.open()) throw FileError(reader.problems().front());
  RecordedBus bus;
  BootTime link_begin(link.begin_wall_us);
  std::vector<tap::RecordedMessage> heard;
  bus.note = read_all(reader, link_begin, heard);
  if (!reader.beginning()) throw FileError(bus.note);
  link_begin.see(reader.beginning()->wall_us, reader.beginning()->boot_ns);

  const int64_t begin_us = link_begin.us() - link.begin_us;
  const int64_t bus_begin_us = static_cast<int64_t>(reader.beginning()->boot_ns) / NS_PER_US;
  if (bus_begin_us > link_begin.us() + link.events.back().at_us || link_begin.last_us() < link_begin.us())
    throw FileError(path + ": was not recorded at the same time as the link");
  bus.uptime_s = static_cast<double>(begin_us) / 1e6;
  std::set<std::string> known;
  for (auto& message : heard) {
    const int64_t at_us = static_cast<int64_t>(message.boot_ns) / NS_PER_US - begin_us;
    const bool is_first = known.insert(message.topic).second;
    if ((message.retained && is_first) || (at_us < 0 && is_always_kept(message.topic)))
      bus.at_start.push_back(publication_of(message, true));
    else if (at_us >= 0)
      bus.later.push_back({at_us, publication_of(message, message.retained)});
  }
  return bus;
}

}  // namespace ecu::koru::sim
