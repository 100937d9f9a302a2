#pragma once

#include <set>
#include <string>

#include "platform/com/MqttFailure.h"

namespace ecu::koru::com {

/// What the ups and downs of the connection put into the log: when it fails, one WARNING, or one ERROR for
/// each different reason that needs somebody to look after it; when it is there (again), one NOTICE; in
/// between nothing. A login that stays unanswered needs somebody from the second time on, because once may
/// mean that a broker is being ended. After a connection it needs nobody: the settings are right, and a
/// forwarder whose broker is away behaves like this.
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
  bool m_unanswered = false;        // the failure before
  std::set<std::string> m_reasons;  // of the ERROR records since the last success
};

}  // namespace ecu::koru::com
