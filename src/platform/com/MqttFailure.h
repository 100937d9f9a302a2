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
  std::string seen = {};  ///< bytes from the peer; different ones are not a different reason
};

/// The result of a call of the client library and the system's error after it.
struct MqttError {
  int code;
  int system_error;
};

/// Further facts about the connection that failed.
struct MqttCourse {
  bool tls;
  int connack;                ///< the answer to the login; -1: there was none
  int disconnect;             ///< the library's reason for disconnecting
  std::string errors;         ///< errors that the library logged
  std::string distrust = {};  ///< why the broker's certificate was not trusted
};

[[nodiscard]] MqttFailure explain(MqttError error, const MqttCourse& course);

/// Returns the failure of a connection that was closed before the login was answered.
[[nodiscard]] MqttFailure unanswered(bool tls);

/// Returns the failure of a broker that sent `packet`, which a client with QoS 0 never gets: a message above
/// QoS 0, or for example "PINGREQ".
[[nodiscard]] MqttFailure uninvited(const std::string& packet);

/// Returns the failure of an answer that is not MQTT. `seen` holds its first bytes, as far as they are known.
[[nodiscard]] MqttFailure foreign(const std::string& seen);

}  // namespace ecu::koru::com
