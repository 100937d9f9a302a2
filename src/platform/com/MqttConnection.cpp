#include "platform/com/MqttConnection.h"

#include <mosquittopp.h>

#include <algorithm>
#include <utility>

#include "platform/base/Logging.h"
#include "platform/base/Time.h"

namespace ecu::koru::com {

namespace {

using std::chrono::milliseconds;

constexpr auto LOG = logging::module("koru.com.mqtt");

constexpr milliseconds SERVING_STEP{5000};  // how late a sign of life may be
constexpr milliseconds GOODBYE_STEP{100};
constexpr milliseconds GOODBYE_LIMIT{500};
constexpr milliseconds FIRST_PAUSE{1000};  // before the next attempt to connect; then doubled each time
constexpr milliseconds LONGEST_PAUSE{30000};
/// After a shorter connection the pause keeps growing: a broker may accept every login and soon disconnect.
constexpr milliseconds GOOD_CONNECTION{10000};

thread_local const MqttConnection* t_delivering = nullptr;

/// Never send an invalid topic: the broker would close the connection again after every reconnect.
bool is_text(const std::string& topic) {
  return !topic.empty() &&
         mosqpp::validate_utf8(topic.c_str(), static_cast<int>(topic.size())) == MOSQ_ERR_SUCCESS;
}

bool can_be_sent(const std::string& topic, const Message& message) {
  return message.payload.size() <= IMqttLink::MAX_PAYLOAD && is_publish_topic(topic);
}

bool can_be_subscribed(const std::string& topic) {
  return is_text(topic) && mosquitto_sub_topic_check(topic.c_str()) == MOSQ_ERR_SUCCESS;
}

}  // namespace

bool is_publish_topic(const std::string& topic) {
  return is_text(topic) && mosquitto_pub_topic_check(topic.c_str()) == MOSQ_ERR_SUCCESS;
}

MqttConnection::MqttConnection(MqttOptions options, std::unique_ptr<IMqttLink> link)
    : m_options(std::move(options)),
      m_link(std::move(link)),
      m_log(logging::escaped(m_options.host) + ":" + std::to_string(m_options.port)) {}

// -- The delivery thread

void MqttConnection::run() {
  t_delivering = this;
  auto next_pause = FIRST_PAUSE;
  while (!stopping()) {
    auto failure = m_link->establish([this] { return stopping(); });
    if (!failure) {
      process(m_link->take_notes());
      set_connected();
      const auto connected = steady_now();
      failure = serve();
      if (steady_now() - connected >= GOOD_CONNECTION) next_pause = FIRST_PAUSE;
    }
    if (!failure || stopping()) break;
    m_log.failed(*failure);
    m_link->clean_up();
    const auto pause = std::exchange(next_pause, std::min(2 * next_pause, LONGEST_PAUSE));
    std::unique_lock lock(m_mutex);
    wait_for(m_changed, lock, pause, [this] { return m_stopping; });
  }
  const std::lock_guard lock(m_mutex);
  m_ended = true;
  m_changed.notify_all();
}

/// Serves the connection until it is lost, and returns why. Once a stop is requested, writes the queued
/// messages; the DISCONNECT after them closes the socket.
std::optional<MqttFailure> MqttConnection::serve() {
  while (!stopping()) {
    if (auto failure = step(SERVING_STEP)) {
      set_lost();
      return failure;
    }
  }
  {
    const std::lock_guard lock(m_mutex);
    m_link->disconnect();  // queued after the rest
  }
  const auto end = steady_now() + GOODBYE_LIMIT;
  while (steady_now() < end && !step(GOODBYE_STEP)) continue;
  return {};
}

std::optional<MqttFailure> MqttConnection::step(milliseconds timeout) {
  m_link->wait(timeout);
  std::unique_lock lock(m_mutex);
  auto failure = m_link->work();
  const auto notes = m_link->take_notes();
  note_written();
  lock.unlock();
  process(notes);
  return failure;
}

bool MqttConnection::stopping() const {
  const std::lock_guard lock(m_mutex);
  return m_stopping;
}

void MqttConnection::process(const IMqttLink::Notes& notes) {
  bool relieved = false;
  std::vector<std::string> refused;
  {
    const std::lock_guard lock(m_mutex);
    relieved = m_dropping && m_outbox.empty();
    if (relieved) m_dropping = false;
    if (m_connected) send_kept();
    for (const auto& [mid, granted] : notes.answers) {
      const auto topic = m_subscribing.extract(mid);
      if (!granted && topic) refused.push_back(topic.mapped());
      m_unsubscribing.erase(mid);
    }
    if (!notes.answers.empty()) m_changed.notify_all();
  }
  if (relieved) LOG.notice("The broker takes messages again");
  for (const auto& topic : refused) {
    LOG.warning("The broker refused the subscription of \"", logging::escaped(topic), "\"");
  }
  for (const auto& [topic, message] : notes.received) m_subscriptions.dispatch(topic, message);
}

void MqttConnection::set_connected() {
  m_log.connected();
  const std::lock_guard lock(m_mutex);
  if (m_stopping) return;
  change_connected(true);
  ++m_connections;
  for (const auto& topic : m_subscriptions.filters()) send_subscribe(topic);
  send_kept();
  m_changed.notify_all();
}

void MqttConnection::set_lost() {
  m_subscriptions.forget_retained();
  const std::lock_guard lock(m_mutex);
  change_connected(false);
  m_corked = false;
  m_dropping = false;
  m_outbox.clear();
  m_subscribing.clear();
  m_unsubscribing.clear();
  m_changed.notify_all();
}

// -- Any thread

void MqttConnection::request_stop() {
  const std::lock_guard lock(m_mutex);
  if (m_stopping) return;
  m_stopping = true;
  change_connected(false);
  m_link->wake();
  m_changed.notify_all();
}

bool MqttConnection::wait_until_ended(milliseconds timeout) {
  std::unique_lock lock(m_mutex);
  return wait_for(m_changed, lock, timeout, [this] { return m_ended; });
}

bool MqttConnection::wait_until_connected(milliseconds timeout) {
  std::unique_lock lock(m_mutex);
  wait_for(m_changed, lock, timeout, [this] { return m_connected || m_stopping; });
  return m_connected;
}

void MqttConnection::wait_until_unsubscribed(milliseconds timeout) {
  std::unique_lock lock(m_mutex);
  wait_for(m_changed, lock, timeout, [this] { return m_unsubscribing.empty(); });
}

void MqttConnection::on_connection_change(std::function<void()> observer) {
  const std::lock_guard lock(m_mutex);
  m_connection_observer = std::move(observer);
}

void MqttConnection::change_connected(bool connected) {
  if (m_connected.exchange(connected) != connected && m_connection_observer) m_connection_observer();
}

TransportCounts MqttConnection::counts() const {
  const std::lock_guard lock(m_mutex);
  return {m_sent, m_dropped, m_connections > 0 ? m_connections - 1 : 0};
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
      return m_outbox.is_waiting(topic) ? -MOSQ_ERR_NO_CONN : 0;
    }
    const auto now = steady_now();
    if (m_connected && m_outbox.accepts(now)) {
      int mid = 0;
      if (m_in_burst && !m_corked.exchange(true)) m_link->cork(true);
      code = m_link->publish(topic, message, mid);
      if (code == MOSQ_ERR_SUCCESS) {
        m_outbox.taken(mid, now);
        ++m_sent;
      }
      note_written();
    } else if (m_connected) {
      dropping_begins = !std::exchange(m_dropping, true);
    }
    m_dropped += code != MOSQ_ERR_SUCCESS ? 1 : 0;
  }
  if (dropping_begins) LOG.warning("The broker takes no more messages: they are dropped");
  return -code;
}

void MqttConnection::end_burst() {
  m_in_burst = false;
  if (!m_corked) return;
  const std::lock_guard lock(m_mutex);
  if (m_corked.exchange(false)) m_link->cork(false);
}

void MqttConnection::send_kept() {
  m_outbox.send_kept(steady_now(), [this](const std::string& topic, const Message& message) {
    int mid = 0;
    if (m_link->publish(topic, message, mid) != MOSQ_ERR_SUCCESS) return 0;
    ++m_sent;
    return mid;
  });
  note_written();
}

/// Keeps account of what was written, and leaves to the delivery thread what the socket did not take.
void MqttConnection::note_written() {
  if (const int mid = m_link->take_written(); mid != 0) m_outbox.written(mid);
  if (m_link->unwritten() && !on_delivery_thread()) m_link->wake();
}

void MqttConnection::send_subscribe(const std::string& topic) {
  if (const int mid = m_link->subscribe(topic); mid != 0) m_subscribing[mid] = topic;
}

bool MqttConnection::subscribe(const std::string& topic, const MqttSubscriptions::Observer& observer,
                               int qos) {
  if (!observer || qos != 0 || !can_be_subscribed(topic)) return false;
  const std::lock_guard lock(m_mutex);
  if (m_subscriptions.add(topic, observer) && m_connected) send_subscribe(topic);
  note_written();
  return true;
}

bool MqttConnection::unsubscribe(const std::string& topic) {
  bool known = false;
  {
    const std::lock_guard lock(m_mutex);
    known = m_subscriptions.remove(topic);
    if (m_connected && can_be_subscribed(topic)) {
      if (const int mid = m_link->unsubscribe(topic); mid != 0) m_unsubscribing.insert(mid);
      note_written();
    }
  }
  if (!on_delivery_thread()) m_subscriptions.wait_until_idle(topic);
  return known;
}

}  // namespace ecu::koru::com
