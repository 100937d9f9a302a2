#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

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

/// What is known about a connection that failed.
struct MqttCourse {
  int code;            ///< the result of the last call of the client library
  int system_error;    ///< errno after it
  int connack = -1;    ///< the answer to the login; -1: there was none
  int disconnect = 0;  ///< the library's reason for disconnecting
  bool tls = false;
  bool tls_answered = false;  ///< with TLS: the peer sent something after the handshake
  std::string errors = {};    ///< errors that the library logged
  std::string distrust = {};  ///< why the broker's certificate was not trusted
};

[[nodiscard]] MqttFailure explain(const MqttCourse& course);

/// Returns the failure of a connection that was closed before the login was answered.
[[nodiscard]] MqttFailure unanswered(bool tls);

/// Returns the name of a packet that the broker must not send to a client with QoS 0, if this line of the
/// library's debug log reports one; empty otherwise. The library answers such packets by itself and keeps the
/// answers in memory until the broker reads them. No callback reports these packets, or a message with QoS 2
/// before the broker releases it.
[[nodiscard]] std::string uninvited_packet(std::string_view line, const std::string& client_name);
[[nodiscard]] std::string message_with(int qos);

/// Returns the failure of a broker that sent `packet`, which a client with QoS 0 never gets: a message above
/// QoS 0, or for example "PINGREQ".
[[nodiscard]] MqttFailure uninvited(const std::string& packet);

/// Returns the failure of an answer that is not MQTT. `seen` holds its first bytes, as far as they are known.
[[nodiscard]] MqttFailure foreign(const std::string& seen);

/// Returns why to stop waiting for the answer to a login, or nothing. `hang_ups` counts the latest steps in a
/// row after which the peer had hung up.
[[nodiscard]] std::optional<MqttFailure> no_answer(bool tls, std::chrono::nanoseconds waited, int hang_ups);

}  // namespace ecu::koru::com
