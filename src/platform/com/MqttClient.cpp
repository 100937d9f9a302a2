#include "platform/com/MqttClient.h"

#include <pthread.h>
#include <signal.h>

#include "platform/base/Logging.h"

namespace ecu::koru::com {

namespace {

constexpr auto LOG = logging::module("koru.com.mqtt");

constexpr std::chrono::milliseconds STOP_LIMIT{1000};
constexpr std::chrono::milliseconds UNSUBSCRIBE_LIMIT{300};

/// Blocks the service's signals in the delivery thread from its first instruction on: the main
/// thread gets them.
std::thread start_thread(std::shared_ptr<MqttConnection> connection) {
  sigset_t blocked;
  sigset_t before;
  sigemptyset(&blocked);
  for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGPIPE}) sigaddset(&blocked, number);
  pthread_sigmask(SIG_BLOCK, &blocked, &before);
  std::thread thread([connection = std::move(connection)] { connection->run(); });
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  return thread;
}

}  // namespace

MqttClient::MqttClient(const MqttOptions& options)
    : m_connection(std::make_shared<MqttConnection>(options, make_mqtt_link(options))) {}

MqttClient::~MqttClient() {
  stop();
  if (m_thread.joinable()) m_thread.detach();  // the last owner is an observer: the thread ends after it
}

bool MqttClient::connect() {
  const std::lock_guard lock(m_mutex);
  if (!m_thread.joinable() && !m_left_behind) m_prepared = m_connection->prepare();
  return m_prepared;
}

bool MqttClient::start() {
  {
    const std::lock_guard lock(m_mutex);
    if (!m_prepared) return false;
    if (!m_thread.joinable()) m_thread = start_thread(m_connection);
  }
  return m_connection->wait_until_connected(m_connection->options().connect_timeout);
}

bool MqttClient::stop() {
  if (!m_connection->on_delivery_thread()) m_connection->wait_until_unsubscribed(UNSUBSCRIBE_LIMIT);
  m_connection->request_stop();
  if (m_connection->on_delivery_thread()) return true;  // it ends when the observer that called this returns
  const std::lock_guard lock(m_mutex);
  m_prepared = false;  // a stopped client cannot start again
  if (!m_thread.joinable()) return !m_left_behind;
  m_left_behind = !m_connection->wait_until_ended(STOP_LIMIT);
  if (m_left_behind) {
    LOG.warning("The delivery thread does not end and is left behind");
    m_thread.detach();
  } else {
    m_thread.join();
  }
  return !m_left_behind;
}

std::chrono::milliseconds MqttClient::read_timeout() const {
  const std::lock_guard lock(m_mutex);
  return m_prepared ? m_connection->options().var_timeout : std::chrono::milliseconds(0);
}

std::shared_ptr<ITransportClient> create_client(std::unique_ptr<config::Configuration>& config,
                                                TransportType type) {
  if (!config || type != TransportType::MQTT) return nullptr;
  return std::make_shared<MqttClient>(read_mqtt_options(*config));
}

}  // namespace ecu::koru::com
