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

/// One connection to a broker, made again whenever it is lost, with all that its delivery thread needs. That
/// thread and the client share it, so that a thread that is stuck in a name look-up can be left behind.
///
/// Only run() drives the client library. Other threads call it only while connected and under m_mutex.
/// Such calls only queue and wake, so none of them meets a reconnect. The library's callbacks only take
/// notes for run().
class MqttConnection final : private mosqpp::mosquittopp {
 public:
  explicit MqttConnection(MqttOptions options);

  /// Reads the files and gives the library credentials and TLS. On failure logs it and returns false.
  [[nodiscard]] bool prepare();
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

  [[nodiscard]] bool is_connected() const;
  [[nodiscard]] bool on_delivery_thread() const;
  [[nodiscard]] const MqttOptions& options() const { return m_options; }

  int publish(const std::string& topic, const Message& message, Delivery delivery);
  bool subscribe(const std::string& topic, const MqttSubscriptions::Observer& observer, int qos);
  bool unsubscribe(const std::string& topic);

 private:
  using Clock = std::chrono::steady_clock;

  // The library calls these within loop(), and on_log() elsewhere too.
  void on_connect(int code) override;
  void on_disconnect(int code) override;
  void on_publish(int mid) override;
  void on_message(const mosquitto_message* message) override;
  void on_subscribe(int mid, int count, const int* granted) override;
  void on_unsubscribe(int mid) override;
  void on_log(int level, const char* text) override;

  // Called before the delivery thread begins, then on it.
  [[nodiscard]] bool equip();

  // On the delivery thread only.
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
  bool m_equipped = false;            // the library has credentials and TLS; nothing is sent without them
  std::unique_ptr<TlsContext> m_tls;  // only with `tls_ca`
  MqttSubscriptions m_subscriptions;

  mutable std::mutex m_mutex;
  std::condition_variable m_changed;
  bool m_connected = false;
  bool m_stopping = false;
  bool m_ended = false;
  bool m_dropping = false;  // messages are refused because old ones are unwritten
  MqttOutbox m_outbox;
  std::map<int, std::string> m_subscribing;  // mid to topic, until the broker answers
  std::set<int> m_unsubscribing;             // mids, likewise

  // Notes of the delivery thread.
  MqttConnectionLog m_log;
  MqttFailure m_failure{MqttFailure::Kind::unreachable, ""};
  int m_connack = -1;       // answer to the present login; -1: none yet
  int m_disconnect = 0;     // code given to on_disconnect()
  std::string m_uninvited;  // packet that the broker must not send; empty: none
  std::string m_errors;     // errors that the library logged
  std::vector<int> m_written;
  std::vector<std::pair<int, bool>> m_answers;  // to (un)subscriptions: mid, granted
  std::vector<std::pair<std::string, Message>> m_received;
};

}  // namespace ecu::koru::com
