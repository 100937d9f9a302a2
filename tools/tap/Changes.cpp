#include "tools/tap/Changes.h"

#include <algorithm>

#include "tools/tap/Decode.h"
#include "tools/tap/Fields.h"
#include "tools/tap/GroupView.h"

namespace ecu::koru::tap {

namespace {

constexpr size_t MAX_TOPICS = 10'000;  // far more than a unit has; anybody may make up topics

/// Fields of bodies, and signals of groups, that change though nothing else does.
constexpr std::string_view TIMES[] = {"utc_time_us", "timestamp_ns", "valid_fix_age_ms", "uptime_ms", "nmea"};
constexpr std::string_view TIME_SIGNALS[] = {"timestamp_ns", "seconds", "minutes", "hours",
                                             "day",          "month",   "year"};

std::string content_of(const Arrival& arrival) {
  const Decoded decoded = decode(arrival.topic, arrival.payload);
  if (!decoded.problem.empty()) return decoded.problem + hex_text(arrival.payload);
  Json content =
      decoded.group.is_valid() ? group_json(decoded.group) : fields(decoded.body, decoded.row->view);
  for (const auto name : TIMES) content.erase(std::string(name));
  for (const auto name : TIME_SIGNALS) {
    if (decoded.group.is_valid()) content["signals"].erase(std::string(name));
  }
  return content.dump();
}

}  // namespace

bool Changes::differs(const Arrival& arrival) {
  std::string content = content_of(arrival);
  std::string topic(arrival.topic);
  if (m_last.size() >= MAX_TOPICS && !m_last.contains(topic)) m_last.clear();
  const auto [last, is_new] = m_last.try_emplace(std::move(topic));
  if (!is_new && last->second == content) return false;
  last->second = std::move(content);
  return true;
}

}  // namespace ecu::koru::tap
