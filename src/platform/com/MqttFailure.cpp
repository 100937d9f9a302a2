#include "platform/com/MqttFailure.h"

#include <mosquittopp.h>
#include <netdb.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>

namespace ecu::koru::com {

namespace {

constexpr std::chrono::milliseconds ANSWER_LIMIT{10000};  // from the look-up's end to the broker's answer
/// During a TLS handshake the library does not notice that the peer is gone. The peer's last bytes may still
/// have to be read, so a hang-up counts only after several more steps.
constexpr int MAX_HANG_UPS = 8;
constexpr char TLS_ALERT = 0x15;  // the first byte of a TLS server's answer to plain text

constexpr int PLAIN_LOSSES[] = {MOSQ_ERR_SUCCESS,   MOSQ_ERR_NO_CONN,   MOSQ_ERR_CONN_REFUSED,
                                MOSQ_ERR_CONN_LOST, MOSQ_ERR_ERRNO,     MOSQ_ERR_EAI,
                                MOSQ_ERR_LOOKUP,    MOSQ_ERR_KEEPALIVE, MOSQ_ERR_TIMEOUT};

bool breaks_protocol(int code) {
  return code == MOSQ_ERR_PROTOCOL || code == MOSQ_ERR_MALFORMED_PACKET || code == MOSQ_ERR_OVERSIZE_PACKET;
}

/// The library reports the end of the stream within a packet as a system error, although errno is then 0, or
/// EPROTO with TLS.
bool ends_within_packet(int code, int system_error) {
  return code == MOSQ_ERR_ERRNO && (system_error == 0 || system_error == EPROTO);
}

std::string without_stop(std::string_view sentence) {
  if (sentence.ends_with('.')) sentence.remove_suffix(1);
  return std::string(sentence);
}

std::string reason_of(int code, int system_error) {
  if (ends_within_packet(code, system_error)) return "the connection was closed in the middle of a packet";
  if (code == MOSQ_ERR_EAI) return gai_strerror(system_error);
  if (code == MOSQ_ERR_ERRNO) return std::strerror(system_error);
  if (code == MOSQ_ERR_SUCCESS || code == MOSQ_ERR_NO_CONN) return "the connection was closed";
  if (code == MOSQ_ERR_KEEPALIVE) return "the broker no longer answers";
  return without_stop(mosqpp::strerror(code));
}

}  // namespace

MqttFailure explain(const MqttCourse& course) {
  using Kind = MqttFailure::Kind;
  int code = course.code;
  if (course.connack > 0) return {Kind::refused, without_stop(mosqpp::connack_string(course.connack))};
  const bool end_of_stream = course.errors.find("unexpected eof") != std::string::npos;
  if (course.tls && !course.errors.empty() && !end_of_stream) {
    return {Kind::tls, course.errors + (course.distrust.empty() ? "" : " (" + course.distrust + ")")};
  }
  // A broker sends its whole answer to the login in one TLS record, so a partial answer is not a broker's.
  const bool cut = course.tls && (end_of_stream || ends_within_packet(code, course.system_error));
  if (course.connack < 0 && (cut || code == MOSQ_ERR_CONN_LOST))
    return course.tls_answered ? foreign({}) : unanswered(course.tls);
  if (end_of_stream) return {Kind::unreachable, reason_of(MOSQ_ERR_CONN_LOST, 0)};
  if (code == MOSQ_ERR_SUCCESS || code == MOSQ_ERR_NO_CONN) code = course.disconnect;
  if (course.connack < 0 && breaks_protocol(code)) return foreign({});
  const auto kind = std::ranges::find(PLAIN_LOSSES, code) != std::end(PLAIN_LOSSES) ? Kind::unreachable
                    : code == MOSQ_ERR_TLS || code == MOSQ_ERR_TLS_HANDSHAKE        ? Kind::tls
                                                                                    : Kind::protocol;
  return {kind, reason_of(code, course.system_error)};
}

MqttFailure unanswered(bool tls) {
  const char* hint = tls ? "does its port speak TLS?" : "does its port expect TLS?";
  return {MqttFailure::Kind::unanswered,
          std::string("the connection was closed without an answer; is a broker behind it, and ") + hint};
}

std::string message_with(int qos) {
  return "message with QoS " + std::to_string(qos);
}

std::string uninvited_packet(std::string_view line, const std::string& client_name) {
  const std::string begin = "Client " + client_name + " received ";
  if (!line.starts_with(begin)) return {};
  line.remove_prefix(begin.size());
  constexpr std::string_view MESSAGE = "PUBLISH (d0, q";  // or d1
  if (line.size() > MESSAGE.size() && line.starts_with("PUBLISH ")) {
    const int qos = line[MESSAGE.size()] - '0';
    return qos > 0 ? message_with(qos) : "";
  }
  for (const std::string_view name : {"PINGREQ", "PUBACK", "PUBREC", "PUBREL", "PUBCOMP"}) {
    if (line.starts_with(name)) return std::string(name);
  }
  return {};
}

MqttFailure uninvited(const std::string& packet) {
  return {MqttFailure::Kind::protocol, "it sent a " + packet + ", nobody asked for that"};
}

MqttFailure foreign(const std::string& seen) {
  using Kind = MqttFailure::Kind;
  if (seen.starts_with(TLS_ALERT)) {
    return {Kind::foreign, "protocol error, the answer to the login is a TLS alert; its port expects TLS"};
  }
  return {Kind::foreign, "protocol error, the answer to the login is not MQTT",
          seen.empty() ? seen : ", it begins with \"" + seen + "\""};
}

std::optional<MqttFailure> no_answer(bool tls, std::chrono::nanoseconds waited, int hang_ups) {
  if (hang_ups > MAX_HANG_UPS) return unanswered(tls);
  if (waited < ANSWER_LIMIT) return std::nullopt;
  return MqttFailure{MqttFailure::Kind::unreachable, "the broker does not answer"};
}

}  // namespace ecu::koru::com
