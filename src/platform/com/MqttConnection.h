#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>

#include "platform/com/MqttConnectionLog.h"
#include "platform/com/MqttLink.h"
#include "platform/com/MqttOptions.h"
#include "platform/com/MqttOutbox.h"
#include "platform/com/MqttSubscriptions.h"
#include "platform/com/Transport.h"

namespace ecu::koru::com {

/// The connection to the broker, made again whenever it is lost, with all that its delivery thread needs.
/// That thread and the client share it, so that a thread that is stuck in a name look-up can be left behind.
class MqttConnection final {
 public:
  MqttConnection(MqttOptions options, std::unique_ptr<IMqttLink> link);

  /// Before prepare().
  void set_last_will(const std::string& topic, const Message& message) {
    m_link->set_last_will(topic, message);
  }
  [[nodiscard]] bool prepare() { return m_link->prepare(); }
  /// The body of the delivery thread; returns soon after request_stop().
  void run();
  /// Ends run() once the queued messages are written, if the broker takes them. Any thread may call it.
  void request_stop();
  /// Returns true if run() ends within `timeout`.
  [[nodiscard]] bool wait_until_ended(std::chrono::milliseconds timeout);
  /// Waits until the broker has answered every unsubscription. Answers left unread at the close would make
  /// the system reset the connection, and the broker would lose what it had not read yet.
  void wait_until_unsubscribed(std::chrono::milliseconds timeout);
  /// Waits for the connection and returns true if there is one. request_stop() ends the wait early.
  [[nodiscard]] bool wait_until_connected(std::chrono::milliseconds timeout);

  [[nodiscard]] bool is_connected() const { return m_connected; }
  void on_connection_change(std::function<void()> observer);
  [[nodiscard]] bool on_delivery_thread() const;
  [[nodiscard]] TransportCounts counts() const;
  [[nodiscard]] const MqttOptions& options() const { return m_options; }

  int publish(const std::string& topic, const Message& message, Delivery delivery);
  void begin_burst() { m_in_burst = true; }
  void end_burst();
  bool subscribe(const std::string& topic, const MqttSubscriptions::Observer& observer, int qos);
  bool unsubscribe(const std::string& topic);

 private:
  // On the delivery thread only.
  std::optional<MqttFailure> serve();
  std::optional<MqttFailure> step(std::chrono::milliseconds timeout);
  [[nodiscard]] bool stopping() const;
  void process(const IMqttLink::Notes& notes);
  void set_connected();
  void set_lost();

  // Under m_mutex.
  void change_connected(bool connected);
  void send_kept();
  void note_written();
  void send_subscribe(const std::string& topic);

  const MqttOptions m_options;
  const std::unique_ptr<IMqttLink> m_link;
  MqttConnectionLog m_log;  // on the delivery thread only
  MqttSubscriptions m_subscriptions;

  mutable std::mutex m_mutex;
  std::condition_variable m_changed;
  std::atomic<bool> m_connected{false};         // changed under the lock
  std::function<void()> m_connection_observer;  // may be empty
  bool m_stopping = false;
  bool m_ended = false;
  std::atomic<bool> m_in_burst{false};
  std::atomic<bool> m_corked{false};  // changed under the lock
  bool m_dropping = false;            // messages are refused because old ones are unwritten
  MqttOutbox m_outbox;
  uint64_t m_sent = 0;
  uint64_t m_dropped = 0;
  uint64_t m_connections = 0;
  std::map<int, std::string> m_subscribing;  // mid to topic, until the broker answers
  std::set<int> m_unsubscribing;             // mids, likewise
};

}  // namespace ecu::koru::com
