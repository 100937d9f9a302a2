#include "platform/com/MqttConnectionLog.h"

#include <utility>

#include "platform/base/Logging.h"

namespace ecu::koru::com {

namespace {

constexpr auto LOG = logging::module("koru.com.mqtt");

constexpr size_t MAX_REASONS = 8;  // a hostile peer can invent more

/// In the order of MqttFailure::Kind.
constexpr const char* ERROR_TEXTS[] = {
    "",           "The login is not answered",    "There is no MQTT broker", "The broker refused the login",
    "TLS failed", "The broker broke the protocol"};

}  // namespace

void MqttConnectionLog::connected() {
  LOG.notice(m_was_connected ? "Connected again to " : "Connected to ", m_peer);
  m_connected = m_was_connected = true;
  m_told = m_unanswered = false;
  m_reasons.clear();
}

void MqttConnectionLog::failed(const MqttFailure& failure) {
  const bool lost = m_connected;
  m_connected = false;
  const std::string reason = logging::escaped(failure.reason);
  const bool unanswered = failure.kind == MqttFailure::Kind::unanswered;
  const bool again = std::exchange(m_unanswered, unanswered);
  if (unanswered ? again && !m_was_connected : failure.kind != MqttFailure::Kind::unreachable) {
    if (m_reasons.size() < MAX_REASONS && m_reasons.insert(reason).second) {
      LOG.error(ERROR_TEXTS[static_cast<size_t>(failure.kind)], ", ", m_peer, ": ", reason,
                logging::escaped(failure.seen));
    }
  } else if (!m_told) {
    LOG.warning(lost ? "Connection lost to " : "No connection to ", m_peer, ": ", reason, "; trying again");
  }
  m_told = true;
}

}  // namespace ecu::koru::com
