#pragma once

#include <string>

namespace ecu::koru::com {

/// Why there is no connection.
struct MqttFailure {
  enum class Kind {
    unreachable,  ///< no broker, no answer, or the connection was lost
    unanswered,   ///< the peer took the connection and closed it before it answered the login
    foreign,      ///< the peer's answer to the login is not MQTT
    refused,      ///< the broker refused the login
    tls,
    protocol
  };
  Kind kind;
  std::string reason;
  std::string seen = {};  ///< what the peer sent; may differ each time, and does not make it another reason
};

/// The result of a call of the client library, with the system's error at that time.
struct MqttError {
  int code;
  int system_error;
};

/// What else is known of the connection that failed.
struct MqttCourse {
  bool tls;
  int connack;                ///< the answer to the login; -1: there was none
  int disconnect;             ///< what the library gave as reason when it disconnected
  std::string errors;         ///< what the library reported at its error level
  std::string distrust = {};  ///< why the broker's certificate was not trusted
};

[[nodiscard]] MqttFailure explain(MqttError error, const MqttCourse& course);

/// The connection was closed before the login was answered.
[[nodiscard]] MqttFailure unanswered(bool tls);

/// The broker sent a packet that a client with QoS 0 never gets: a message above QoS 0, or "PINGREQ".
[[nodiscard]] MqttFailure uninvited(const std::string& packet);

/// `seen`: the answer's first bytes, as far as they are known.
[[nodiscard]] MqttFailure foreign(const std::string& seen);

}  // namespace ecu::koru::com
