#pragma once

#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

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
    std::map<std::string, size_t> seen;  // topic to hash of its last message on this connection
  };
  using Pointer = std::shared_ptr<Subscription>;

  static std::optional<size_t> replace_seen(Subscription& entry, const std::string& topic, size_t hash);
  size_t collect(const std::string& topic, const Message& message, size_t hash);
  bool is_copy(const Message& message, size_t hash, size_t filters);
  void call(const Pointer& subscription, const std::string& topic, const Message& message);

  mutable std::mutex m_mutex;
  std::condition_variable m_idle;
  std::vector<Pointer> m_all;
  Pointer m_current;        // whose observer is being called
  bool m_one_copy = false;  // this broker sends a message once, not once for each topic that matches

  // On the delivery thread only.
  std::vector<Pointer> m_matching;
  size_t m_last_hash = 0;
  size_t m_copies_due = 0;
  std::chrono::steady_clock::time_point m_last_end;
};

}  // namespace ecu::koru::com
