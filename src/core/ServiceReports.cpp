#include "core/ServiceReports.h"

#include <algorithm>

#include "platform/com/PbInternalMessageAdapter.h"
#include "wire/ServiceLog.h"
#include "wire/Stopwatch.h"

namespace ecu::koru::gpspub {

namespace {

constexpr uint16_t PROTOCOL_TYPE = 1;
constexpr int64_t HEALTH_US = 10'000'000;
constexpr int64_t US_PER_MS = 1000;
constexpr int64_t NS_PER_US = 1000;

/// Returns the message in its envelope, to be retained.
com::Message retained(const pb::GnssHealth& health) {
  auto result = com::PbInternalMessageAdapter<pb::GnssHealth>(PROTOCOL_TYPE).serialize(health);
  result.message.retained = true;
  return std::move(result.message);
}

uint64_t milliseconds(int64_t us) {
  return static_cast<uint64_t>(std::max<int64_t>(us, 0) / US_PER_MS);
}

}  // namespace

void ServiceReports::setHealthTopic(std::string topic, std::string version) {
  m_health_topic = std::move(topic);
  m_version = std::move(version);
}

void ServiceReports::begins() {
  m_begin_us = GnssUtils::getMicrosecDuration(0);
  m_fix_report = FixReport(m_begin_us);
  if (!m_health_topic.empty()) m_health_due_us = m_begin_us;
  m_manager->ready();
}

void ServiceReports::ends() {
  m_manager->stopping();
  if (!m_health_topic.empty()) publishHealth(pb::GnssHealth::STOPPED, "the service was stopped");
}

void ServiceReports::modeBegins(const IReportedMode& mode) {
  m_mode = &mode;
  m_is_gnss_off = false;
  const FixState before = m_fix_report.state();
  m_fix_report.begin(GnssUtils::getMicrosecDuration(0));
  reportChange(before);
}

void ServiceReports::gnssIsOff() {
  m_is_gnss_off = true;
  look();
}

void ServiceReports::passBegins() {
  const bool connected = m_transport->is_connected();
  const int64_t due_us = std::min(m_fix_report.due(), m_health_due_us);
  const bool was_connected = std::exchange(m_was_connected, connected);
  const bool returned = connected && !was_connected && !m_health_topic.empty();
  if (due_us != NEVER || returned) {
    const int64_t now = GnssUtils::getMicrosecDuration(0);
    if (now >= m_fix_report.due()) look();
    if (now >= m_health_due_us || returned) {
      const int64_t late_us = returned ? 0 : (now - m_health_due_us) % HEALTH_US;
      publishHealth(m_fix_report.state(), m_fix_report.reason());
      m_health_due_us -= late_us;  // so that delays do not add up
    }
  }
  if (connected) {
    m_manager->status(m_fix_report.reason());
  } else {
    m_manager->status("no broker; " + m_fix_report.reason());
  }
  m_manager->progress();
  logging::tell_kept_back();
}

void ServiceReports::look() {
  const FixState before = m_fix_report.state();
  const bool runs = m_mode != nullptr && !m_is_gnss_off;
  const auto record =
      m_fix_report.update(runs ? m_mode->fixFacts() : FixFacts(), GnssUtils::getMicrosecDuration(0));
  if (record) LOG.log(record->level, record->text);
  reportChange(before);
}

void ServiceReports::reportChange(FixState before) {
  const bool changed = m_fix_report.state() != before;
  if (changed && !m_health_topic.empty()) publishHealth(m_fix_report.state(), m_fix_report.reason());
}

int64_t ServiceReports::due() const {
  const int64_t due_ns = m_manager->due_ns();
  int64_t due_us = NEVER;
  if (due_ns != NEVER) {
    const int64_t left_ns = std::max<int64_t>(due_ns - time_source().steady_ns(), 0);
    due_us = GnssUtils::getMicrosecDuration(0) + (left_ns + NS_PER_US - 1) / NS_PER_US;
  }
  return std::min({due_us, m_fix_report.due(), m_health_due_us});
}

/// Without a broker it is dropped: passBegins() publishes the present one when the broker is back.
void ServiceReports::publishHealth(FixState state, const std::string& reason) {
  m_health_due_us = GnssUtils::getMicrosecDuration(0) + HEALTH_US;
  if (m_transport->is_connected()) m_transport->publish(m_health_topic, retained(health(state, reason)));
}

pb::GnssHealth ServiceReports::health(FixState state, const std::string& reason) const {
  const int64_t now = GnssUtils::getMicrosecDuration(0);
  pb::GnssHealth health;
  health.set_state(state);
  health.set_reason(reason);
  if (const auto valid_us = m_fix_report.lastValid())
    health.set_valid_fix_age_ms(milliseconds(now - *valid_us));
  if (m_mode != nullptr) m_mode->fillHealth(health);
  const com::TransportCounts counts = m_transport->counts();
  health.set_messages_sent(counts.sent);
  health.set_messages_dropped(health.messages_dropped() + counts.dropped);
  health.set_reconnects(counts.reconnects);
  health.set_version(m_version);
  health.set_uptime_ms(milliseconds(now - m_begin_us));
  return health;
}

com::Message healthLastWill(const std::string& version) {
  pb::GnssHealth health;
  health.set_state(pb::GnssHealth::GONE);
  health.set_reason("the service is gone");
  health.set_version(version);
  return retained(health);
}

}  // namespace ecu::koru::gpspub
