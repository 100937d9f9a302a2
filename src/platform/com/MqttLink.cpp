#include "platform/com/MqttLink.h"

#include <fcntl.h>
#include <mosquittopp.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>
#include <thread>

#include "platform/base/Logging.h"
#include "platform/base/Time.h"
#include "platform/base/WakeUp.h"
#include "platform/com/TlsContext.h"

namespace ecu::koru::com {

namespace {

using std::chrono::milliseconds;

constexpr auto LOG = logging::module("koru.com.mqtt");

constexpr int KEEP_ALIVE_S = 30;
constexpr milliseconds CONNECTING_STEP{100};  // how soon a stop is noticed while connecting
constexpr int SEND_BUFFER = 16 * 1024;
constexpr int MAX_RECEIVED = 1024 * 1024;
constexpr size_t MAX_ERROR_TEXT = 300;
constexpr size_t MAX_SEEN = 40;  // bytes of an answer that is not MQTT: enough for a greeting
constexpr int REFUSED_SUBSCRIPTION = 0x80;
constexpr char CONNACK = 0x20;  // the first byte of a broker's answer to the login

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

const char* text_or_null(const std::string& text) {
  return text.empty() ? nullptr : text.c_str();
}

class MqttLink final : public IMqttLink, private mosqpp::mosquittopp {
 public:
  explicit MqttLink(const MqttOptions& options)
      : mosquittopp(options.client_name.c_str(), true), m_options(options) {}

  void set_last_will(const std::string& topic, const Message& message) override;
  [[nodiscard]] bool prepare() override;
  [[nodiscard]] Failure establish(const std::function<bool()>& stopping) override;
  void wait(milliseconds timeout) override;
  void wake() override { m_wake.wake(); }
  [[nodiscard]] Failure work() override;
  [[nodiscard]] int take_written() override { return std::exchange(m_written, 0); }
  [[nodiscard]] Notes take_notes() override { return std::exchange(m_notes, {}); }
  void clean_up() override;

  [[nodiscard]] bool unwritten() override { return want_write(); }
  [[nodiscard]] int publish(const std::string& topic, const Message& message, int& mid) override;
  void cork(bool on) override {
    const int value = on ? 1 : 0;
    setsockopt(socket(), IPPROTO_TCP, TCP_CORK, &value, sizeof value);
  }
  [[nodiscard]] int subscribe(const std::string& topic) override {
    int mid = 0;
    ++m_requests;
    return mosquittopp::subscribe(&mid, topic.c_str(), 0) == MOSQ_ERR_SUCCESS ? mid : 0;
  }
  [[nodiscard]] int unsubscribe(const std::string& topic) override {
    int mid = 0;
    ++m_requests;
    return mosquittopp::unsubscribe(&mid, topic.c_str()) == MOSQ_ERR_SUCCESS ? mid : 0;
  }
  void disconnect() override { mosquittopp::disconnect(); }

 private:
  // The library calls these while it works, on_publish() and on_log() also while it takes a request.
  void on_connect(int code) override { m_connack = code; }
  void on_disconnect(int code) override { m_disconnect = code; }
  void on_publish(int mid) override { m_written = mid; }
  void on_subscribe(int mid, int count, const int* granted) override {
    m_notes.answers.emplace_back(mid, count > 0 && granted[0] < REFUSED_SUBSCRIPTION);
  }
  void on_unsubscribe(int mid) override { m_notes.answers.emplace_back(mid, true); }
  void on_message(const mosquitto_message* message) override;
  void on_log(int level, const char* text) override;

  [[nodiscard]] bool equip();
  [[nodiscard]] Failure attempt(const char* bind_address, const std::function<bool()>& stopping);
  [[nodiscard]] Failure step_to_first_byte(bool& answering);
  [[nodiscard]] Failure step(milliseconds timeout);
  [[nodiscard]] Failure checked(int code);
  [[nodiscard]] Failure open(const char* bind_address);
  void abandon();
  [[nodiscard]] MqttFailure explained(int code, int system_error) const;
  [[nodiscard]] bool uses_tls() const { return !m_options.tls_ca.empty(); }

  const MqttOptions m_options;
  std::optional<std::string> m_password;
  bool m_equipped = false;            // the library has credentials and TLS; nothing is sent without them
  std::unique_ptr<TlsContext> m_tls;  // only with `tls_ca`
  std::thread::id m_driver;           // the delivery thread, from its first attempt on
  int m_connack = -1;                 // answer to the present login; -1: none yet
  int m_disconnect = 0;               // code given to on_disconnect()
  std::string m_uninvited;            // packet that the broker must not send; empty: none
  std::string m_errors;               // errors that the library logged
  Notes m_notes;
  int m_requests = 0;  // since work()
  int m_written = 0;   // number of the last message written; 0: none since take_written()
  WakeUp m_wake;
};

void MqttLink::set_last_will(const std::string& topic, const Message& message) {
  const int code = will_set(topic.c_str(), static_cast<int>(message.payload.size()), message.payload.data(),
                            0, message.retained);
  if (code != MOSQ_ERR_SUCCESS) LOG.error("No last will: ", mosqpp::strerror(code));
}

bool MqttLink::prepare() {
  if (!check_mqtt_files(m_options)) return false;
  warn_of_open_secrets(m_options);
  if (!m_options.password_file.empty()) {
    m_password = read_password(m_options.password_file);
    if (!m_password) return false;
  }
  m_equipped = equip();
  return m_equipped;
}

bool MqttLink::equip() {
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

/// Tries every address family once. Returns the first failure unless a later one needs attention.
IMqttLink::Failure MqttLink::establish(const std::function<bool()>& stopping) {
  m_driver = std::this_thread::get_id();
  Failure first;
  for (const char* address : bind_addresses(m_options.host)) {
    const auto failure = attempt(address, stopping);
    if (!failure) return {};
    abandon();
    if (!first || failure->kind != MqttFailure::Kind::unreachable) first = failure;
    if (stopping() || !m_uninvited.empty()) break;  // clean_up() must come before the next attempt
  }
  return first;
}

IMqttLink::Failure MqttLink::attempt(const char* bind_address, const std::function<bool()>& stopping) {
  if (auto failure = open(bind_address)) return failure;
  const auto begin = steady_now();
  int hang_ups = 0;
  bool answering = uses_tls();  // only the library can read what is encrypted
  while (!stopping()) {
    if (auto failure = answering ? step(CONNECTING_STEP) : step_to_first_byte(answering)) return failure;
    if (m_connack == 0) return {};
    hang_ups = hung_up(socket()) ? hang_ups + 1 : 0;
    if (auto failure = no_answer(uses_tls(), steady_now() - begin, hang_ups)) return failure;
  }
  return MqttFailure{MqttFailure::Kind::unreachable, "stopped"};
}

/// Lets the library take a step, unless the peer begins to send something that is not MQTT: the library would
/// take that for a packet and wait for the rest.
IMqttLink::Failure MqttLink::step_to_first_byte(bool& answering) {
  const std::string first = first_bytes(socket(), want_write());
  answering = !first.empty();
  if (!answering || first.front() == CONNACK) return step(milliseconds(0));
  return foreign(first);
}

/// Looks up the name, which may take long, and starts to connect.
IMqttLink::Failure MqttLink::open(const char* bind_address) {
  m_connack = -1;
  m_disconnect = 0;
  m_uninvited.clear();
  if (m_tls) m_tls->forget();
  m_errors.clear();
  m_notes = {};
  m_requests = m_written = 0;
  if (!m_equipped) m_equipped = equip();
  if (!m_equipped) return MqttFailure{MqttFailure::Kind::unreachable, "there are no credentials or no TLS"};
  errno = 0;
  // With TLS 1.3 a broker refuses after the handshake, and closes. If the library sent the login at once,
  // that could fail first, and the broker's reason would be lost. "Threaded" leaves it to step(), which reads
  // first.
  threaded_set(true);
  const int code = connect_async(m_options.host.c_str(), m_options.port, KEEP_ALIVE_S, bind_address);
  threaded_set(false);
  if (code != MOSQ_ERR_SUCCESS) return explained(code, errno);
  tune(socket());
  return {};
}

/// Shuts the library's socket down. The library closes it when it notices, at the latest at its next connect.
void MqttLink::abandon() {
  if (socket() < 0) return;
  ::shutdown(socket(), SHUT_RDWR);
  for (int tries = 0; tries < 3 && socket() >= 0; ++tries) loop(0, 1);
}

/// Lets the library wait, and work.
IMqttLink::Failure MqttLink::step(milliseconds timeout) {
  errno = 0;
  return checked(loop(static_cast<int>(timeout.count()), 1));
}

/// Unlike the library's own wait, this one does not end each time another thread sends a message.
void MqttLink::wait(milliseconds timeout) {
  if (socket() < 0) return;
  std::array<pollfd, 2> watched{{{socket(), static_cast<short>(want_write() ? POLLIN | POLLOUT : POLLIN), 0},
                                 {m_wake.fd(), POLLIN, 0}}};
  poll(watched.data(), watched.size(), static_cast<int>(timeout.count()));
  if (watched[1].revents != 0) m_wake.clear();
}

/// Each request leaves a byte in a socket pair of the library, which ends its own wait; loop() takes one out.
IMqttLink::Failure MqttLink::work() {
  Failure failure = step(milliseconds(0));
  for (int left = std::exchange(m_requests, 0) - 1; left > 0 && !failure; --left)
    failure = step(milliseconds(0));
  return failure;
}

/// `code` is the library's, of a call that may have left the system's reason in errno.
IMqttLink::Failure MqttLink::checked(int code) {
  const int system_error = errno;
  if (!m_uninvited.empty()) return uninvited(m_uninvited);
  if (code == MOSQ_ERR_SUCCESS && socket() >= 0) return {};
  return explained(code, system_error);
}

/// Drops messages with QoS 2 that were never released, which the library would keep for the next connection.
void MqttLink::clean_up() {
  if (m_uninvited.empty()) return;
  reinitialise(m_options.client_name.c_str(), true);
  m_equipped = false;
}

MqttFailure MqttLink::explained(int code, int system_error) const {
  MqttCourse course{code, system_error, m_connack, m_disconnect, uses_tls(), false, m_errors};
  if (m_tls) {
    course.tls_answered = m_tls->answered();
    course.distrust = m_tls->distrust();
  }
  return explain(course);
}

void MqttLink::on_message(const mosquitto_message* message) {
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
  m_notes.received.push_back(
      {message->topic,
       {DateTime::time_since_boot_ns(), {bytes, bytes + message->payloadlen}, true, message->retain}});
}

void MqttLink::on_log(int level, const char* text) {
  if (std::this_thread::get_id() != m_driver) return;
  std::string_view line = text;
  if (level == MOSQ_LOG_DEBUG && m_uninvited.empty())
    m_uninvited = uninvited_packet(line, m_options.client_name);
  if (level != MOSQ_LOG_ERR || m_errors.size() >= MAX_ERROR_TEXT) return;
  line = line.substr(0, line.find_last_not_of("\r\n") + 1).substr(0, MAX_ERROR_TEXT);
  m_errors += (m_errors.empty() ? "" : "; ") + std::string(line);
}

int MqttLink::publish(const std::string& topic, const Message& message, int& mid) {
  if (message.payload.size() > MAX_PAYLOAD) return MOSQ_ERR_PAYLOAD_SIZE;
  ++m_requests;
  return mosquittopp::publish(&mid, topic.c_str(), static_cast<int>(message.payload.size()),
                              message.payload.data(), 0, message.retained);
}

}  // namespace

std::unique_ptr<IMqttLink> make_mqtt_link(const MqttOptions& options) {
  return std::make_unique<MqttLink>(options);
}

}  // namespace ecu::koru::com
