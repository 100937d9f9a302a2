#include "platform/com/MqttConnection.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "platform/base/Logging.h"
#include "platform/base/Time.h"
#include "platform/com/MqttBackoff.h"

namespace ecu::koru::com {

namespace {

using std::chrono::milliseconds;

constexpr auto LOG = logging::module("koru.com.mqtt");

constexpr int KEEP_ALIVE_S = 30;
constexpr milliseconds ANSWER_LIMIT{10000};  // from the look-up's end to the broker's answer to the login
constexpr milliseconds GOODBYE_LIMIT{500};
constexpr milliseconds CONNECTING_STEP{100};  // how soon a stop is noticed while connecting
constexpr milliseconds SERVING_STEP{1000};    // publish() and request_stop() end it early
constexpr int SEND_BUFFER = 16 * 1024;
constexpr int MAX_RECEIVED = 1024 * 1024;
constexpr size_t MAX_SENT = 268'435'455 - 65'537;  // the protocol's longest packet less the longest topic
constexpr size_t MAX_ERROR_TEXT = 300;
constexpr size_t MAX_SEEN = 40;  // bytes of an answer that is not MQTT: enough for a greeting
constexpr int REFUSED_SUBSCRIPTION = 0x80;
constexpr char CONNACK = 0x20;  // the first byte of a broker's answer to the login

thread_local const MqttConnection* t_delivering = nullptr;

/// Lets messages leave at once, and only a few of them wait in the socket if the broker stops reading.
void tune(int descriptor) {
  const int on = 1;
  setsockopt(descriptor, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  setsockopt(descriptor, SOL_SOCKET, SO_SNDBUF, &SEND_BUFFER, sizeof SEND_BUFFER);
  fcntl(descriptor, F_SETFD, FD_CLOEXEC);
}

bool hung_up(int descriptor) {
  pollfd watched{descriptor, 0, 0};
  return poll(&watched, 1, 0) == 1 && (watched.revents & (POLLHUP | POLLERR)) != 0;
}

/// Waits briefly for the peer's first bytes and returns them. They stay in the socket for the library.
std::string first_bytes(int descriptor, bool until_writable) {
  pollfd watched{descriptor, static_cast<short>(until_writable ? POLLIN | POLLOUT : POLLIN), 0};
  poll(&watched, 1, static_cast<int>(CONNECTING_STEP.count()));
  int count = 0;
  // recv() would take a connection's error away from the library, so it is called only if there are bytes.
  if (ioctl(descriptor, FIONREAD, &count) != 0 || count <= 0) return {};
  std::array<char, MAX_SEEN> bytes{};
  const ssize_t length = recv(descriptor, bytes.data(), bytes.size(), MSG_PEEK | MSG_DONTWAIT);
  return {bytes.data(), static_cast<size_t>(std::max<ssize_t>(length, 0))};
}

/// Without blocking, the library tries only the first address of a name. The local address that it is told to
/// use selects the family of that address.
std::vector<const char*> bind_addresses(const std::string& host) {
  if (host.find(':') != std::string::npos) return {"::"};
  if (host.find_first_not_of("0123456789.") == std::string::npos) return {"0.0.0.0"};
  return {"0.0.0.0", "::"};
}

/// Gives the library no pass phrase for a key file, because there is nobody to type it.
int no_pass_phrase(char* /*buffer*/, int /*size*/, int /*writing*/, void* /*user*/) {
  return 0;
}

/// Never send an invalid topic: the broker would close the connection again after every reconnect.
bool is_text(const std::string& topic) {
  return !topic.empty() &&
         mosqpp::validate_utf8(topic.c_str(), static_cast<int>(topic.size())) == MOSQ_ERR_SUCCESS;
}

bool can_be_sent(const std::string& topic, const Message& message) {
  return message.payload.size() <= MAX_SENT && is_text(topic) &&
         mosquitto_pub_topic_check(topic.c_str()) == MOSQ_ERR_SUCCESS;
}

bool can_be_subscribed(const std::string& topic) {
  return is_text(topic) && mosquitto_sub_topic_check(topic.c_str()) == MOSQ_ERR_SUCCESS;
}

std::string message_with(int qos) {
  return "message with QoS " + std::to_string(qos);
}

/// Returns the name of a packet that the broker must not send to a client with QoS 0, if this line of the
/// library's debug log reports one; empty otherwise. The library answers such packets by itself and keeps the
/// answers in memory until the broker reads them. No callback reports these packets, or a message with QoS 2
/// before the broker releases it.
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

const char* text_or_null(const std::string& text) {
  return text.empty() ? nullptr : text.c_str();
}

}  // namespace

MqttConnection::MqttConnection(MqttOptions options)
    : mosquittopp(options.client_name.c_str(), true),
      m_options(std::move(options)),
      m_log(logging::escaped(m_options.host) + ":" + std::to_string(m_options.port)) {}

bool MqttConnection::prepare() {
  if (!check_mqtt_files(m_options)) return false;
  warn_of_open_secrets(m_options);
  if (!m_options.password_file.empty()) {
    m_password = read_password(m_options.password_file);
    if (!m_password) return false;
  }
  m_equipped = equip();
  return m_equipped;
}

bool MqttConnection::equip() {
  threaded_set(true);  // calls from other threads only queue and wake; loop() writes
  int code = MOSQ_ERR_SUCCESS;
  if (!m_options.username.empty()) {
    code = username_pw_set(m_options.username.c_str(), m_password ? m_password->c_str() : nullptr);
  }
  if (code == MOSQ_ERR_SUCCESS && uses_tls()) {
    if (!m_tls) m_tls = std::make_unique<TlsContext>(m_options.host);
    opts_set(MOSQ_OPT_SSL_CTX, m_tls->get());
    code = tls_set(m_options.tls_ca.c_str(), nullptr, text_or_null(m_options.tls_cert),
                   text_or_null(m_options.tls_key), no_pass_phrase);
  }
  if (code != MOSQ_ERR_SUCCESS) LOG.error("No credentials or TLS: ", mosqpp::strerror(code));
  return code == MOSQ_ERR_SUCCESS;
}

// -- The delivery thread

void MqttConnection::run() {
  t_delivering = this;
  MqttBackoff backoff;
  while (!stopping()) {
    if (establish()) {
      const auto connected = Clock::now();
      serve();
      backoff.lost_after(std::chrono::duration_cast<milliseconds>(Clock::now() - connected));
    }
    if (stopping()) break;
    m_log.failed(m_failure);
    if (!m_uninvited.empty()) forget_inbox();
    pause(backoff.pause());
  }
  say_goodbye();
  const std::lock_guard lock(m_mutex);
  m_ended = true;
  m_changed.notify_all();
}

/// Serves the connection until it is lost or a stop is requested.
void MqttConnection::serve() {
  while (!stopping()) {
    if (!step(SERVING_STEP)) {
      set_lost();
      return;
    }
  }
}

/// Drops messages with QoS 2 that were never released, which the library would keep for the next connection.
void MqttConnection::forget_inbox() {
  reinitialise(m_options.client_name.c_str(), true);
  m_equipped = false;
}

/// Writes the queued messages; the DISCONNECT after them closes the socket.
void MqttConnection::say_goodbye() {
  const auto end = Clock::now() + GOODBYE_LIMIT;
  while (m_connack == 0 && socket() >= 0 && Clock::now() < end) {
    if (!step(CONNECTING_STEP)) return;
  }
}

bool MqttConnection::stopping() const {
  const std::lock_guard lock(m_mutex);
  return m_stopping;
}

void MqttConnection::pause(milliseconds time) {
  std::unique_lock lock(m_mutex);
  m_changed.wait_for(lock, time, [this] { return m_stopping; });
}

/// Tries every address family once. Keeps the first reason of failure unless a later one needs attention.
bool MqttConnection::establish() {
  std::optional<MqttFailure> first;
  for (const char* address : bind_addresses(m_options.host)) {
    if (stopping()) return false;
    if (attempt(address)) return true;
    abandon();
    if (!first || m_failure.kind != MqttFailure::Kind::unreachable) first = m_failure;
    if (!m_uninvited.empty()) break;  // forget_inbox() must come before the next attempt
  }
  if (first) m_failure = *first;
  return false;
}

bool MqttConnection::attempt(const char* bind_address) {
  if (!open(bind_address)) return false;
  const auto end = Clock::now() + ANSWER_LIMIT;
  int hang_ups = 0;
  bool answering = uses_tls();  // only the library can read what is encrypted
  while (!stopping()) {
    if (!(answering ? step(CONNECTING_STEP) : step_to_first_byte(answering))) return false;
    if (m_connack == 0) {
      set_connected();
      return true;
    }
    // During a TLS handshake the library does not notice that the peer is gone. The peer's last bytes may
    // still have to be read, so a hang-up counts only after several more steps.
    hang_ups = hung_up(socket()) ? hang_ups + 1 : 0;
    if (hang_ups > 8) {
      m_failure = unanswered(uses_tls());
      return false;
    }
    if (Clock::now() >= end) {
      m_failure = {MqttFailure::Kind::unreachable, "the broker does not answer"};
      return false;
    }
  }
  return false;
}

/// Lets the library take a step, unless the peer begins to send something that is not MQTT: the library would
/// take that for a packet and wait for the rest.
bool MqttConnection::step_to_first_byte(bool& answering) {
  const std::string first = first_bytes(socket(), want_write());
  answering = !first.empty();
  if (!answering || first.front() == CONNACK) return step(milliseconds(0));
  m_failure = foreign(first);
  return false;
}

/// Looks up the name, which may take long, and starts to connect.
bool MqttConnection::open(const char* bind_address) {
  m_connack = -1;
  m_disconnect = 0;
  m_uninvited.clear();
  if (m_tls) m_tls->forget_distrust();
  m_errors.clear();
  if (!m_equipped) m_equipped = equip();
  if (!m_equipped) {
    m_failure = {MqttFailure::Kind::unreachable, "there are no credentials or no TLS"};
    return false;
  }
  errno = 0;
  const int code = connect_async(m_options.host.c_str(), m_options.port, KEEP_ALIVE_S, bind_address);
  if (code != MOSQ_ERR_SUCCESS) {
    m_failure = failure({code, errno});
    return false;
  }
  tune(socket());
  return true;
}

/// Shuts the library's socket down. The library closes it when it notices, at the latest at its next connect.
void MqttConnection::abandon() {
  if (socket() < 0) return;
  ::shutdown(socket(), SHUT_RDWR);
  for (int tries = 0; tries < 3 && socket() >= 0; ++tries) loop(0, 1);
}

/// Lets the library take a step, then processes all that it reported. Returns false, with the reason in
/// m_failure, if the connection is gone or must be given up.
bool MqttConnection::step(milliseconds timeout) {
  errno = 0;
  const int code = loop(static_cast<int>(timeout.count()), 1);
  const int system_error = errno;
  const bool alive = code == MOSQ_ERR_SUCCESS && socket() >= 0 && m_uninvited.empty();
  if (!m_uninvited.empty()) {
    m_failure = uninvited(m_uninvited);
  } else if (!alive) {
    m_failure = failure({code, system_error});
  }
  process_written();
  for (const auto& [topic, message] : m_received) m_subscriptions.dispatch(topic, message);
  m_received.clear();
  return alive;
}

void MqttConnection::process_written() {
  bool relieved = false;
  std::vector<std::string> refused;
  {
    const std::lock_guard lock(m_mutex);
    for (const int mid : m_written) m_outbox.written(mid);
    m_outbox.set_blocked(want_write());
    relieved = m_dropping && m_outbox.empty();
    if (relieved) m_dropping = false;
    if (m_connected) send_kept();
    for (const auto& [mid, granted] : m_answers) {
      const auto topic = m_subscribing.extract(mid);
      if (!granted && topic) refused.push_back(topic.mapped());
      m_unsubscribing.erase(mid);
    }
    if (!m_answers.empty()) m_changed.notify_all();
  }
  m_written.clear();
  m_answers.clear();
  if (relieved) LOG.notice("The broker takes messages again");
  for (const auto& topic : refused) {
    LOG.warning("The broker refused the subscription of \"", logging::escaped(topic), "\"");
  }
}

void MqttConnection::set_connected() {
  m_log.connected();
  const std::lock_guard lock(m_mutex);
  if (m_stopping) {
    disconnect();
    return;
  }
  m_connected = true;
  for (const auto& topic : m_subscriptions.filters()) send_subscribe(topic);
  send_kept();
  m_changed.notify_all();
}

void MqttConnection::set_lost() {
  m_subscriptions.forget_retained();
  const std::lock_guard lock(m_mutex);
  m_connected = false;
  m_dropping = false;
  m_outbox.clear();
  m_subscribing.clear();
  m_unsubscribing.clear();
  m_changed.notify_all();
}

MqttFailure MqttConnection::failure(MqttError error) const {
  return explain(error, {uses_tls(), m_connack, m_disconnect, m_errors, m_tls ? m_tls->distrust() : ""});
}

// -- Callbacks of the library

void MqttConnection::on_connect(int code) {
  m_connack = code;
}

void MqttConnection::on_disconnect(int code) {
  m_disconnect = code;
}

void MqttConnection::on_publish(int mid) {
  m_written.push_back(mid);
}

void MqttConnection::on_subscribe(int mid, int count, const int* granted) {
  m_answers.emplace_back(mid, count > 0 && granted[0] < REFUSED_SUBSCRIPTION);
}

void MqttConnection::on_unsubscribe(int mid) {
  m_answers.emplace_back(mid, true);
}

void MqttConnection::on_message(const mosquitto_message* message) {
  if (message->qos > 0) {
    m_uninvited = message_with(message->qos);
    return;
  }
  if (message->payloadlen > MAX_RECEIVED) {
    LOG.warning("A message of ", message->payloadlen, " bytes on \"", logging::escaped(message->topic),
                "\" is dropped");
    return;
  }
  const auto* bytes = static_cast<const uint8_t*>(message->payload);
  m_received.push_back(
      {message->topic,
       {DateTime::time_since_boot_ns(), {bytes, bytes + message->payloadlen}, true, message->retain}});
}

void MqttConnection::on_log(int level, const char* text) {
  if (!on_delivery_thread()) return;
  std::string_view line = text;
  if (level == MOSQ_LOG_DEBUG && m_uninvited.empty())
    m_uninvited = uninvited_packet(line, m_options.client_name);
  if (level != MOSQ_LOG_ERR || m_errors.size() >= MAX_ERROR_TEXT) return;
  line = line.substr(0, line.find_last_not_of("\r\n") + 1).substr(0, MAX_ERROR_TEXT);
  m_errors += (m_errors.empty() ? "" : "; ") + std::string(line);
}

// -- Any thread

void MqttConnection::request_stop() {
  const std::lock_guard lock(m_mutex);
  if (m_stopping) return;
  m_stopping = true;
  if (m_connected) disconnect();  // queued after the rest; wakes the delivery thread
  m_connected = false;
  m_changed.notify_all();
}

bool MqttConnection::wait_until_ended(milliseconds timeout) {
  std::unique_lock lock(m_mutex);
  return m_changed.wait_for(lock, timeout, [this] { return m_ended; });
}

bool MqttConnection::wait_until_connected(milliseconds timeout) {
  std::unique_lock lock(m_mutex);
  m_changed.wait_for(lock, timeout, [this] { return m_connected || m_stopping; });
  return m_connected;
}

void MqttConnection::wait_until_unsubscribed(std::chrono::milliseconds timeout) {
  std::unique_lock lock(m_mutex);
  m_changed.wait_for(lock, timeout, [this] { return m_unsubscribing.empty(); });
}

bool MqttConnection::is_connected() const {
  const std::lock_guard lock(m_mutex);
  return m_connected;
}

bool MqttConnection::on_delivery_thread() const {
  return t_delivering == this;
}

int MqttConnection::publish(const std::string& topic, const Message& message, Delivery delivery) {
  bool dropping_begins = false;
  int code = MOSQ_ERR_NO_CONN;
  {
    const std::lock_guard lock(m_mutex);
    if (delivery == Delivery::until_sent) {
      if (!can_be_sent(topic, message)) return -MOSQ_ERR_INVAL;
      m_outbox.keep(topic, message);
      if (m_connected) send_kept();
      return m_outbox.on_its_way(topic) ? 0 : -MOSQ_ERR_NO_CONN;
    }
    const auto now = Clock::now();
    if (m_connected && m_outbox.accepts(now)) {
      int mid = 0;
      code = hand_over(topic, message, mid);
      if (code == MOSQ_ERR_SUCCESS) m_outbox.taken(mid, now);
    } else if (m_connected) {
      dropping_begins = !std::exchange(m_dropping, true);
    }
  }
  if (dropping_begins) LOG.warning("The broker takes no more messages: they are dropped");
  return -code;
}

int MqttConnection::hand_over(const std::string& topic, const Message& message, int& mid) {
  if (message.payload.size() > MAX_SENT) return MOSQ_ERR_PAYLOAD_SIZE;
  return mosquittopp::publish(&mid, topic.c_str(), static_cast<int>(message.payload.size()),
                              message.payload.data(), 0, message.retained);
}

void MqttConnection::send_kept() {
  m_outbox.send_kept(Clock::now(), [this](const std::string& topic, const Message& message) {
    int mid = 0;
    return hand_over(topic, message, mid) == MOSQ_ERR_SUCCESS ? mid : 0;
  });
}

void MqttConnection::send_subscribe(const std::string& topic) {
  int mid = 0;
  if (mosquittopp::subscribe(&mid, topic.c_str(), 0) == MOSQ_ERR_SUCCESS) m_subscribing[mid] = topic;
}

bool MqttConnection::subscribe(const std::string& topic, const MqttSubscriptions::Observer& observer,
                               int qos) {
  if (!observer || qos != 0 || !can_be_subscribed(topic)) return false;
  const std::lock_guard lock(m_mutex);
  if (m_subscriptions.add(topic, observer) && m_connected) send_subscribe(topic);
  return true;
}

bool MqttConnection::unsubscribe(const std::string& topic) {
  bool known = false;
  {
    const std::lock_guard lock(m_mutex);
    known = m_subscriptions.remove(topic);
    int mid = 0;
    if (m_connected && can_be_subscribed(topic) &&
        mosquittopp::unsubscribe(&mid, topic.c_str()) == MOSQ_ERR_SUCCESS) {
      m_unsubscribing.insert(mid);
    }
  }
  if (!on_delivery_thread()) m_subscriptions.wait_until_idle(topic);
  return known;
}

}  // namespace ecu::koru::com
