#include "sim/ecu/Bridge.h"

#include <algorithm>
#include <utility>

#include "platform/base/Logging.h"
#include "platform/base/Time.h"
#include "tools/tap/Decode.h"

namespace ecu::koru::sim {

namespace {

constexpr auto LOG = logging::module("ecu.bridge");

constexpr int64_t REST_NS = 5'000'000;
constexpr int BURST = 64;  // the transport always takes that many messages at once

std::vector<Bridge::Route> routes_of(const rt::SignalDatabase& database) {
  std::vector<Bridge::Route> routes;
  for (const auto& group : database.groups()) {
    if (group.tx_topic.empty() || group.rx_topic.empty()) continue;
    routes.push_back({.name = group.name, .from = group.tx_topic, .to = group.rx_topic});
  }
  return routes;
}

}  // namespace

Bridge::Bridge(const Options& options, com::ITransportClient& to, std::function<void()> on_waiting)
    : m_options(options),
      m_to(to),
      m_on_waiting(std::move(on_waiting)),
      m_random(options.seed),
      m_routes(routes_of(*rt::SignalAdapter::instance().database())) {}

std::vector<std::string> Bridge::topics() const {
  std::vector<std::string> out;
  for (const auto& route : routes()) out.push_back(m_options.from_prefix + route.from);
  return out;
}

void Bridge::message(const std::string& topic, const com::Message& message) {
  if (message.retained || !topic.starts_with(m_options.from_prefix)) return;
  const std::string_view own_topic = std::string_view(topic).substr(m_options.from_prefix.size());
  const auto found = std::find_if(m_routes.begin(), m_routes.end(),
                                  [=](const Route& route) { return route.from == own_topic; });
  if (found == m_routes.end()) return;
  tap::Decoded decoded = tap::decode(own_topic, message.payload);
  if (decoded.group.is_valid()) {
    take(static_cast<size_t>(found - m_routes.begin()), std::move(decoded.group));
    return;
  }
  bool first_one = false;
  {
    const std::lock_guard lock(m_mutex);
    first_one = found->malformed++ == 0;
  }
  if (first_one) {
    LOG.warning("The first malformed message on \"", logging::escaped(topic), "\": ", decoded.problem);
  }
}

void Bridge::take(size_t route, rt::SignalGroup group) {
  const bool lost = static_cast<double>(m_random() >> 11U) * 0x1p-53 < m_options.loss;
  const int64_t due_ns = time_source().steady_ns() + m_options.delay_ns;
  bool first_one = false;
  {
    const std::lock_guard lock(m_mutex);
    if (m_stopped) return;
    if (lost) {
      ++m_routes[route].lost;
    } else if (m_waiting.size() >= CAPACITY) {
      ++m_routes[route].dropped;
    } else {
      first_one = m_waiting.empty();
      m_waiting.push_back({due_ns, route, std::move(group)});
    }
  }
  if (first_one) m_on_waiting();
}

std::optional<int64_t> Bridge::send_due() {
  for (int sent = 0; const auto frame = first(); ++sent) {
    const int64_t now_ns = time_source().steady_ns();
    if (frame->due_ns > now_ns) return frame->due_ns - now_ns;
    const Outcome outcome = sent < BURST ? send(*frame, now_ns) : Outcome::LATER;
    if (outcome == Outcome::LATER) return REST_NS;
    const std::lock_guard lock(m_mutex);
    m_waiting.pop_front();
    ++(outcome == Outcome::CARRIED ? m_routes[frame->route].carried : m_routes[frame->route].dropped);
  }
  return std::nullopt;
}

std::optional<Bridge::Waiting> Bridge::first() const {
  const std::lock_guard lock(m_mutex);
  if (m_waiting.empty()) return std::nullopt;
  return m_waiting.front();
}

Bridge::Outcome Bridge::send(const Waiting& frame, int64_t now_ns) {
  const auto message = rt::SignalAdapter::instance().pack(frame.group);
  if (!message) return Outcome::DROPPED;
  if (m_to.publish(m_options.to_prefix + m_routes[frame.route].to, *message) >= 0) return Outcome::CARRIED;
  const bool worth_another_try = m_to.is_connected() && now_ns - frame.due_ns < PATIENCE_NS;
  return worth_another_try ? Outcome::LATER : Outcome::DROPPED;
}

void Bridge::stop() {
  const std::lock_guard lock(m_mutex);
  m_stopped = true;
  for (const auto& frame : m_waiting) ++m_routes[frame.route].dropped;
  m_waiting.clear();
}

std::vector<Bridge::Route> Bridge::routes() const {
  const std::lock_guard lock(m_mutex);
  return m_routes;
}

}  // namespace ecu::koru::sim
