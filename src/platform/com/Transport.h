#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/base/Configuration.h"

/// The unit's publish/subscribe transport: topics with names, messages of bytes.
namespace ecu::koru::com {

struct Message {
  uint64_t timestamp_ns = 0;  ///< since boot: of the serialization, on reception of the arrival
  std::vector<uint8_t> payload;
  bool valid = false;     ///< true in all that the service sends
  bool retained = false;  ///< the broker keeps it (sending), it was kept (reception)
};

/// Receives the messages of a subscription.
class ISubscriptionObserver {
 public:
  virtual ~ISubscriptionObserver() = default;
  /// Called on the transport's delivery thread, one message at a time, with no lock of the transport held: it
  /// may publish, subscribe and unsubscribe. What it throws is logged and ends there.
  virtual void message(const std::string& topic, const Message& message) = 0;
};

enum class TransportType : int { MQTT = 0 };

/// What becomes of a message that cannot be sent now.
enum class Delivery {
  once,       ///< it is gone: an old fix is never delivered after an outage
  until_sent  ///< the topic's newest one is kept and sent at the next connect
};

/// Every operation may be called from any thread.
class ITransportClient {
 public:
  virtual ~ITransportClient() = default;

  /// Prepares credentials and TLS and starts connecting. False when that cannot be done (a file that cannot
  /// be used; logged at ERROR): there will be no connection then.
  virtual bool connect() = 0;
  /// Starts the delivery thread and waits until connected or until the configured time is over; true when
  /// connected. Afterwards the client keeps trying by itself.
  virtual bool start() = 0;
  /// Hands over what is under way, says good-bye and ends the delivery thread, all within about a second
  /// whatever the broker does. False when the thread is stuck in the operating system and was left behind:
  /// the process must then be ended without further clean-up.
  virtual bool stop() = 0;

  [[nodiscard]] virtual bool is_connected() const = 0;

  /// 0, or a negative number when it could not be sent (now). Never waits.
  virtual int publish(const std::string& topic, const Message& message,
                      Delivery delivery = Delivery::once) = 0;

  /// Hands the messages of `topic` (MQTT wildcards allowed) to `observer`, also after each reconnect. The
  /// observer is held weakly. Subscribing the same topic and observer twice is one subscription. False on an
  /// invalid topic and on any other QoS than 0: a broker that sends more breaks the protocol.
  virtual bool subscribe(const std::string& topic, const std::shared_ptr<ISubscriptionObserver>& observer,
                         int qos) = 0;
  /// Ends all subscriptions of the topic. When it returns, no call to their observers is under way, except
  /// when it is called by such an observer. False when nobody had subscribed it.
  virtual bool unsubscribe(const std::string& topic) = 0;

  /// How long a read of a retained variable waits for it.
  [[nodiscard]] virtual std::chrono::milliseconds read_timeout() const = 0;
};

/// A client of the type given, set up by the keys host, port, client_name, username, password_file, tls_ca,
/// tls_cert, tls_key, connect_timeout_ms and var_timeout_ms. A value that makes no sense is an ERROR record
/// and its default is used. Null for an unknown type. Needs mosqpp::lib_init().
[[nodiscard]] std::shared_ptr<ITransportClient> create_client(std::unique_ptr<config::Configuration>& config,
                                                              TransportType type);

}  // namespace ecu::koru::com
