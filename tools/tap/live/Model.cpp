#include "tools/tap/live/Model.h"

#include <algorithm>
#include <type_traits>
#include <variant>

#include "platform/com/Topics.h"
#include "tools/tap/Delay.h"

namespace ecu::koru::tap::live {

namespace {

constexpr size_t MAX_TOPICS = 500;  // anybody may make up topics; those of the unit always have their place
constexpr size_t MAX_ARRIVALS = 21;

/// Returns true for the topics that the unit is known to have: those with a name of their own in the table of
/// topics, the groups of the signal database, and the system signals of the fix page.
bool is_of_unit(std::string_view topic, const Decoded& decoded) {
  if (decoded.row == nullptr) return false;
  const bool named = !decoded.row->pattern.ends_with('#');
  const bool shown = topic == topic::ANTENNA_SHORT_CIRCUIT || topic == topic::ANTENNA_OPEN_CIRCUIT ||
                     topic == topic::MODULE_ERROR;
  return named || shown || rt::SignalAdapter::instance().database()->find(topic) != nullptr;
}

void count_arrival(TopicState& state, const Arrival& arrival, const Decoded& decoded) {
  if (!state.arrivals.empty() && arrival.boot_ns >= state.arrivals.back())
    state.longest_gap_ns = std::max(state.longest_gap_ns, arrival.boot_ns - state.arrivals.back());
  state.arrivals.push_back(arrival.boot_ns);
  if (state.arrivals.size() > MAX_ARRIVALS) state.arrivals.pop_front();
  state.delay_ns =
      decoded.envelope ? delay_ns(decoded.envelope->timestamp_ns, arrival.boot_ns) : std::nullopt;
}

}  // namespace

double TopicState::rate_hz() const {
  if (arrivals.size() < 2 || arrivals.back() <= arrivals.front()) return 0;
  return static_cast<double>(arrivals.size() - 1) * 1e9 /
         static_cast<double>(arrivals.back() - arrivals.front());
}

void Model::take(const Arrival& arrival, const Decoded& decoded) {
  if (!decoded.problem.empty()) ++m_undecodable;
  TopicState* const state = state_of(arrival.topic, is_of_unit(arrival.topic, decoded));
  if (state == nullptr) {
    ++m_left_out;
    return;
  }
  ++state->messages;
  if (!arrival.retained) count_arrival(*state, arrival, decoded);
  if (!decoded.problem.empty()) {
    ++state->undecodable;
    state->problem = decoded.problem;
    return;
  }
  if (decoded.group.is_valid()) state->group = {decoded.group, arrival.boot_ns};
  std::visit([&](const auto& body) { keep(body, arrival.boot_ns); }, decoded.body);
}

template <typename T>
void Model::keep(const T& body, uint64_t boot_ns) {
  if constexpr (std::is_same_v<T, pb::GnssData>) {
    keep_sky(body, boot_ns);
    m_fix = {body, boot_ns};
  }
  if constexpr (std::is_same_v<T, pb::GnssHealth>) m_health = {body, boot_ns};
  if constexpr (std::is_same_v<T, pb::TimeZone>) m_zone = {body, boot_ns};
  if constexpr (std::is_same_v<T, pb::GnssSource>) m_source = {body, boot_ns};
}

void Model::keep_sky(const pb::GnssData& fix, uint64_t boot_ns) {
  Sky sky = read_sky(fix);
  if (sky.has_view || !m_sky) m_sky = {std::move(sky), boot_ns};
}

TopicState* Model::state_of(std::string_view topic, bool of_unit) {
  const auto found = m_topics.find(topic);
  if (found != m_topics.end()) return &found->second;
  return of_unit || m_topics.size() < MAX_TOPICS ? &m_topics[std::string(topic)] : nullptr;
}

const TopicState* Model::topic(std::string_view name) const {
  const auto found = m_topics.find(name);
  return found != m_topics.end() ? &found->second : nullptr;
}

std::optional<uint64_t> Model::signal(std::string_view name) const {
  const TopicState* const state = topic(name);
  if (state == nullptr || !state->group || state->group->body.bytes().empty()) return std::nullopt;
  return state->group->body.bytes()[0];
}

}  // namespace ecu::koru::tap::live
