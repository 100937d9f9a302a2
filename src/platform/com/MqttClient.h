#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>

#include "platform/com/MqttConnection.h"
#include "platform/com/Transport.h"

namespace ecu::koru::com {

/// The transport over MQTT 3.1.1: clean session, keep-alive 30 s, publications with QoS 0. Owns the delivery
/// thread. While there is no connection, it tries again after 1 s, 2 s, 4 s and so on, up to 30 s. At
/// shutdown the thread is given about a second. If a name look-up or an observer holds it for longer, it is
/// left behind with the objects that it needs.
///
/// A message that matches several subscribed topics is handed once to each subscription, whether the broker
/// sends one copy or several. Until the broker has shown which it does, an identical message within a second
/// counts as a copy.
class MqttClient final : public ITransportClient {
 public:
  explicit MqttClient(const MqttOptions& options);
  ~MqttClient() override;

  void set_last_will(const std::string& topic, const Message& message) override {
    m_connection->set_last_will(topic, message);
  }
  bool connect() override;
  bool start() override;
  bool stop() override;
  [[nodiscard]] bool is_connected() const override { return m_connection->is_connected(); }
  void on_connection_change(std::function<void()> observer) override {
    m_connection->on_connection_change(std::move(observer));
  }
  int publish(const std::string& topic, const Message& message, Delivery delivery = Delivery::once) override {
    return m_connection->publish(topic, message, delivery);
  }
  void begin_burst() override { m_connection->begin_burst(); }
  void end_burst() override { m_connection->end_burst(); }
  bool subscribe(const std::string& topic, const std::shared_ptr<ISubscriptionObserver>& observer,
                 int qos) override {
    return m_connection->subscribe(topic, observer, qos);
  }
  [[nodiscard]] TransportCounts counts() const override { return m_connection->counts(); }
  bool unsubscribe(const std::string& topic) override { return m_connection->unsubscribe(topic); }
  [[nodiscard]] std::chrono::milliseconds read_timeout() const override;

 private:
  std::shared_ptr<MqttConnection> m_connection;
  mutable std::mutex m_mutex;  // guards the members below
  std::thread m_thread;
  bool m_prepared = false;
  bool m_left_behind = false;
};

}  // namespace ecu::koru::com
