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

/// Who wants which messages. Thread-safe; dispatch() belongs to the delivery thread.
class MqttSubscriptions {
 public:
  using Observer = std::shared_ptr<ISubscriptionObserver>;

  /// False when the topic and observer are already there.
  bool add(const std::string& filter, const Observer& observer);
  /// Forgets all of the topic; no callback of it begins afterwards. False when there was none.
  bool remove(const std::string& filter);
  /// Waits until no callback of the topic is under way. Not on the delivery thread.
  void wait_until_idle(const std::string& filter);

  /// Every topic once.
  [[nodiscard]] std::set<std::string> filters() const;
  /// A new connection: the broker sends the retained messages again.
  void forget_retained();

  /// Hands the message to all that want it, with no lock held. What they throw is logged.
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
  Pointer m_current;  // its observer is being called
  bool m_one_copy =
      false;  // the broker was seen to send a message once, not once for every topic that matches

  // Of the delivery thread.
  std::vector<Pointer> m_matching;
  size_t m_last_hash = 0;
  size_t m_copies_due = 0;
  std::chrono::steady_clock::time_point m_last_end;
};

}  // namespace ecu::koru::com
