#pragma once

#include <mosquittopp.h>

#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/com/MqttConnectionLog.h"
#include "platform/com/MqttFailure.h"
#include "platform/com/MqttOptions.h"
#include "platform/com/MqttOutbox.h"
#include "platform/com/MqttSubscriptions.h"
#include "platform/com/TlsContext.h"
#include "platform/com/Transport.h"

namespace ecu::koru::com {

/// One connection to a broker, made again whenever it is lost, with all that its delivery thread needs:
/// shared by that thread and the client, so that a thread which is stuck in a name look-up can be left
/// behind.
///
/// The client library is driven by run() alone. Other threads call it only while connected and under m_mutex,
/// and there it only queues and wakes; so none of its calls meets a reconnect. Its callbacks only take notes
/// for run().
class MqttConnection final : private mosqpp::mosquittopp {
 public:
  explicit MqttConnection(MqttOptions options);

  /// Reads the files and gives the library credentials and TLS. False when that cannot be done; logged.
  [[nodiscard]] bool prepare();
  /// The body of the delivery thread; returns soon after request_stop().
  void run();
  /// Ends run(), what is queued being written first if the broker takes it. From any thread.
  void request_stop();
  /// True when run() has returned.
  [[nodiscard]] bool wait_until_ended(std::chrono::milliseconds timeout);
  /// Waits until the broker has answered every unsubscription: its answers unread at the close would make the
  /// system reset the connection, and the broker would lose what it had not read yet.
  void wait_until_unsubscribed(std::chrono::milliseconds timeout);
  /// True when connected; ended early by request_stop().
  [[nodiscard]] bool wait_until_connected(std::chrono::milliseconds timeout);

  [[nodiscard]] bool is_connected() const;
  /// True on the thread that executes run().
  [[nodiscard]] bool on_delivery_thread() const;
  [[nodiscard]] const MqttOptions& options() const { return m_options; }

  int publish(const std::string& topic, const Message& message, Delivery delivery);
  bool subscribe(const std::string& topic, const MqttSubscriptions::Observer& observer, int qos);
  bool unsubscribe(const std::string& topic);

 private:
  using Clock = std::chrono::steady_clock;

  // Called by the library inside of its loop().
  void on_connect(int code) override;
  void on_disconnect(int code) override;
  void on_publish(int mid) override;
  void on_message(const mosquitto_message* message) override;
  void on_subscribe(int mid, int count, const int* granted) override;
  void on_unsubscribe(int mid) override;
  void on_log(int level, const char* text) override;

  // Before the delivery thread begins, then on it.
  [[nodiscard]] bool equip();

  // Of the delivery thread.
  void forget_inbox();
  void serve();
  void say_goodbye();
  [[nodiscard]] bool stopping() const;
  void pause(std::chrono::milliseconds time);
  bool establish();
  bool attempt(const char* bind_address);
  bool step_to_first_byte(bool& answering);
  [[nodiscard]] bool open(const char* bind_address);
  void abandon();
  bool step(std::chrono::milliseconds timeout);
  void process_written();
  void set_connected();
  void set_lost();
  [[nodiscard]] MqttFailure failure(MqttError error) const;
  [[nodiscard]] bool uses_tls() const { return !m_options.tls_ca.empty(); }

  // Under m_mutex.
  int hand_over(const std::string& topic, const Message& message, int& mid);
  void send_kept();
  void send_subscribe(const std::string& topic);

  const MqttOptions m_options;
  std::optional<std::string> m_password;
  bool m_equipped = false;            // the library has credentials and TLS: nothing is ever sent without
  std::unique_ptr<TlsContext> m_tls;  // with `tls_ca` only
  MqttSubscriptions m_subscriptions;

  mutable std::mutex m_mutex;
  std::condition_variable m_changed;
  bool m_connected = false;
  bool m_stopping = false;
  bool m_ended = false;
  bool m_dropping = false;  // messages are refused because old ones lie unwritten
  MqttOutbox m_outbox;
  std::map<int, std::string> m_subscribing;  // mid to topic, until the broker answers
  std::set<int> m_unsubscribing;             // mids, likewise

  // Notes of the delivery thread.
  MqttConnectionLog m_log;
  MqttFailure m_failure{MqttFailure::Kind::unreachable, ""};
  int m_connack = -1;       // of the present connection; -1: not yet
  int m_disconnect = 0;     // what on_disconnect() was told
  std::string m_uninvited;  // the packet that the broker must not send to this client
  std::string m_errors;     // what the library reported at its error level
  std::vector<int> m_written;
  std::vector<std::pair<int, bool>> m_answers;  // to (un)subscriptions: mid, granted
  std::vector<std::pair<std::string, Message>> m_received;
};

}  // namespace ecu::koru::com
