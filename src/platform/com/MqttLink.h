#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/com/MqttFailure.h"
#include "platform/com/MqttOptions.h"
#include "platform/com/Transport.h"

namespace ecu::koru::com {

/// The client library as MqttConnection sees it: one login to the broker at a time, driven step by step.
///
/// Only the delivery thread drives it. Other threads may only send and wake. They send while MqttConnection
/// is connected and under its lock, so that none can run during a reconnect. A request is written to the
/// socket at once, as far as that takes it; work() writes the rest.
class IMqttLink {
 public:
  /// Notes of the library's callbacks.
  struct Notes {
    std::vector<std::pair<int, bool>> answers;  // to (un)subscriptions: mid, granted
    std::vector<std::pair<std::string, Message>> received;
  };
  using Failure = std::optional<MqttFailure>;  // nothing: success

  /// The protocol's longest packet less the longest topic.
  static constexpr size_t MAX_PAYLOAD = 268'435'455 - 65'537;

  virtual ~IMqttLink() = default;
  /// Has the broker publish `message` if the connection ends without disconnect(). Before prepare().
  virtual void set_last_will(const std::string& /*topic*/, const Message& /*message*/) {}
  /// Reads the files and gives the library credentials and TLS. On failure logs it and returns false.
  [[nodiscard]] virtual bool prepare() = 0;
  /// Logs in to the broker. Gives up, with any failure, soon after `stopping` returns true.
  [[nodiscard]] virtual Failure establish(const std::function<bool()>& stopping) = 0;
  /// Waits until work() has something to do, for at most `timeout`. Called without the lock.
  virtual void wait(std::chrono::milliseconds timeout) = 0;
  /// Ends the present wait(), or the next one. Any thread.
  virtual void wake() = 0;
  /// Reads and writes without waiting, under the lock. Fails if the connection is gone or must be given up.
  [[nodiscard]] virtual Failure work() = 0;
  /// Returns the notes since the last call.
  [[nodiscard]] virtual Notes take_notes() = 0;
  /// Returns the number of the message that was written last if one was written since the last call, else 0.
  [[nodiscard]] virtual int take_written() = 0;
  /// Drops state of a failed connection that would harm the next one.
  virtual void clean_up() = 0;

  /// Returns true if the library holds unwritten bytes.
  [[nodiscard]] virtual bool unwritten() = 0;
  /// Returns the library's code, and the message's number in `mid`.
  [[nodiscard]] virtual int publish(const std::string& topic, const Message& message, int& mid) = 0;
  /// While on, the socket collects messages; switching it off sends them.
  virtual void cork(bool on) = 0;
  /// These return the request's mid; 0 if it cannot be sent.
  [[nodiscard]] virtual int subscribe(const std::string& topic) = 0;
  [[nodiscard]] virtual int unsubscribe(const std::string& topic) = 0;
  /// Queues the DISCONNECT after everything else.
  virtual void disconnect() = 0;
};

[[nodiscard]] std::unique_ptr<IMqttLink> make_mqtt_link(const MqttOptions& options);

}  // namespace ecu::koru::com
