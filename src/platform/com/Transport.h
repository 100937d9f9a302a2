#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/base/Configuration.h"

/// The unit's publish/subscribe transport: messages of bytes on named topics.
namespace ecu::koru::com {

struct Message {
  uint64_t timestamp_ns = 0;  ///< since boot; when serialized or, on reception, when it arrived
  std::vector<uint8_t> payload;
  bool valid = false;     ///< true in all that the service sends
  bool retained = false;  ///< sending: the broker keeps it; reception: it had kept it
};

/// Receives the messages of a subscription.
class ISubscriptionObserver {
 public:
  virtual ~ISubscriptionObserver() = default;
  /// Called on the transport's delivery thread, one message at a time, with no lock of the transport held, so
  /// it may publish, subscribe and unsubscribe. The transport catches and logs what it throws.
  virtual void message(const std::string& topic, const Message& message) = 0;
};

/// What has been published since the client was created.
struct TransportCounts {
  uint64_t sent = 0;        ///< messages taken by the client library
  uint64_t dropped = 0;     ///< messages that publish() refused
  uint64_t reconnects = 0;  ///< connections after the first
};

enum class TransportType : int { MQTT = 0 };

/// The fate of a message that cannot be sent now.
enum class Delivery {
  once,       ///< it is dropped: an old fix is never delivered after an outage
  until_sent  ///< the topic's newest one is kept and sent after the next connect
};

/// Every operation may be called from any thread.
class ITransportClient {
 public:
  virtual ~ITransportClient() = default;

  /// Has the broker publish `message` on `topic` if the connection ends without stop(). Before connect().
  virtual void set_last_will(const std::string& /*topic*/, const Message& /*message*/) {}
  /// Prepares credentials and TLS. If that fails, for example because a file cannot be used, logs an ERROR
  /// and returns false; there will be no connection then.
  virtual bool connect() = 0;
  /// Starts the delivery thread and waits until connected or until the configured time is over. Returns true
  /// if connected. The client keeps trying by itself afterwards.
  virtual bool start() = 0;
  /// Sends what is under way, disconnects and ends the delivery thread, all within about a second whatever
  /// the broker does. Returns false if the thread is stuck and was left behind: the process must then end
  /// without further clean-up.
  virtual bool stop() = 0;

  [[nodiscard]] virtual bool is_connected() const = 0;
  /// Calls `observer` on the delivery thread whenever is_connected() changes, until another one is set. An
  /// empty one ends that: when this returns, the one before is no longer called. It must not call the client.
  virtual void on_connection_change(std::function<void()> observer) = 0;

  /// Returns 0, or a negative number if the message could not be sent (now). Never waits for the broker, only
  /// until the delivery thread has taken in what the broker has sent of a packet.
  virtual int publish(const std::string& topic, const Message& message,
                      Delivery delivery = Delivery::once) = 0;

  /// The messages published from now on leave together, at end_burst(). It must follow within a millisecond.
  virtual void begin_burst() {}
  virtual void end_burst() {}

  /// Hands the messages of `topic` (MQTT wildcards allowed) to `observer`, also after each reconnect. Holds
  /// the observer weakly. Subscribing the same topic and observer twice makes one subscription. Returns false
  /// for an invalid topic, a null observer or any QoS but 0: a broker that sends more breaks the protocol.
  virtual bool subscribe(const std::string& topic, const std::shared_ptr<ISubscriptionObserver>& observer,
                         int qos) = 0;
  /// Ends all subscriptions of the topic. When it returns, no call to their observers is under way, unless
  /// such an observer called it. Returns false if nobody had subscribed the topic.
  virtual bool unsubscribe(const std::string& topic) = 0;

  [[nodiscard]] virtual TransportCounts counts() const { return {}; }

  /// Returns how long to wait for a retained variable.
  [[nodiscard]] virtual std::chrono::milliseconds read_timeout() const = 0;
};

/// Sends the messages that are published during its life in one piece, which costs less than one at a time.
class Burst {
 public:
  explicit Burst(ITransportClient& client) : m_client(client) { m_client.begin_burst(); }
  ~Burst() { m_client.end_burst(); }
  Burst(const Burst&) = delete;
  Burst& operator=(const Burst&) = delete;

 private:
  ITransportClient& m_client;
};

/// Returns true if messages can be published on `topic`: valid UTF-8 text without wildcards.
[[nodiscard]] bool is_publish_topic(const std::string& topic);

/// Creates a client of the given type from the keys host, port, client_name, username, password_file, tls_ca,
/// tls_cert, tls_key, connect_timeout_ms and var_timeout_ms. For a value that makes no sense, logs an ERROR
/// and uses the default. Returns null for an unknown type or a null `config`. Needs mosqpp::lib_init().
[[nodiscard]] std::shared_ptr<ITransportClient> create_client(std::unique_ptr<config::Configuration>& config,
                                                              TransportType type);

}  // namespace ecu::koru::com
