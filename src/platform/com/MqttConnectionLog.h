#pragma once

#include <set>
#include <string>

#include "platform/com/MqttFailure.h"

namespace ecu::koru::com {

/// Logs how the connection fares: one WARNING if it fails, or one ERROR for each different reason that needs
/// attention; one NOTICE when it is made (again); nothing in between. An unanswered login needs attention
/// from the second time on, because one may mean that a broker is shutting down. After a successful
/// connection it needs none: the settings are right, and a forwarder whose broker is away behaves like this.
class MqttConnectionLog {
 public:
  /// `peer`: the broker's "host:port".
  explicit MqttConnectionLog(std::string peer) : m_peer(std::move(peer)) {}
  void connected();
  void failed(const MqttFailure& failure);

 private:
  std::string m_peer;
  bool m_connected = false;
  bool m_was_connected = false;
  bool m_told = false;
  bool m_unanswered = false;        // the last failure was an unanswered login
  std::set<std::string> m_reasons;  // of the ERROR records since the last success
};

}  // namespace ecu::koru::com
