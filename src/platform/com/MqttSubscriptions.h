#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "platform/com/MqttCopies.h"
#include "platform/com/Transport.h"

namespace ecu::koru::com {

/// Knows who wants which messages. Thread-safe, but only the delivery thread may call dispatch().
class MqttSubscriptions {
 public:
  using Observer = std::shared_ptr<ISubscriptionObserver>;

  /// Returns false if the observer has already subscribed the topic.
  bool add(const std::string& filter, const Observer& observer);
  /// Removes all subscriptions of the topic; none of their callbacks begins afterwards. Returns false if
  /// there was none.
  bool remove(const std::string& filter);
  /// Waits until no callback of the topic is under way. Must not be called on the delivery thread.
  void wait_until_idle(const std::string& filter);

  /// Returns every subscribed topic once.
  [[nodiscard]] std::set<std::string> filters() const;
  /// Forgets the messages seen so far, because a new connection brings the retained ones again.
  void forget_retained();

  /// Hands the message to all that want it, with no lock held. Logs what they throw.
  void dispatch(const std::string& topic, const Message& message);

 private:
  struct Subscription {
    std::string filter;
    std::weak_ptr<ISubscriptionObserver> observer;
    bool removed = false;
    MqttSeen seen;  // on this connection
  };
  using Pointer = std::shared_ptr<Subscription>;

  std::vector<Pointer> receivers(const std::string& topic, const Message& message);
  void call(const Pointer& subscription, const std::string& topic, const Message& message);

  mutable std::mutex m_mutex;
  std::condition_variable m_idle;
  std::vector<Pointer> m_all;
  Pointer m_current;  // whose observer is being called
  MqttCopies m_copies;
};

}  // namespace ecu::koru::com
