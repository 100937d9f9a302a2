#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <utility>

namespace ecu::koru::com {

/// Recognises copies. Some brokers send a message once for each matching subscription of a client, others
/// only once. Copies follow each other directly, with the same bytes. If an expected copy does not come, the
/// broker is taken to send none. Holds state only, and uses neither clock nor lock.
class MqttCopies {
 public:
  using Time = std::chrono::nanoseconds;  // steady clock

  /// Copies of one message follow each other directly; after this time an identical message is a new one.
  static constexpr std::chrono::milliseconds COPY_GAP{1000};

  /// Returns true if the message is a copy. `topics`: how many different subscribed topics match.
  /// A retained message never is.
  [[nodiscard]] bool is_copy(size_t hash, bool retained, size_t topics, Time now) {
    if (retained) return false;
    const bool same = hash == m_last_hash && now - m_last_end < COPY_GAP;
    if (m_due > 0 && !same) m_one_copy = true;
    if (m_due > 0 && same && !m_one_copy) {
      --m_due;
      return true;
    }
    m_last_hash = hash;
    m_due = topics > 0 ? topics - 1 : 0;
    return false;
  }
  /// Notes that a message, retained or not, has reached its observers.
  void delivered(Time now) { m_last_end = now; }
  /// Learns anew what this broker does: the subscriptions or the connection changed.
  void learn_anew() { m_one_copy = false; }

 private:
  bool m_one_copy = false;  // this broker sends a message once, not once for each topic that matches
  size_t m_last_hash = 0;
  size_t m_due = 0;
  Time m_last_end{};
};

/// The last message of each topic that a subscription got. A retained message comes once for every SUBSCRIBE
/// that matches it, whichever subscription caused that.
class MqttSeen {
 public:
  /// Remembers the message and returns true if it equals the topic's previous one.
  [[nodiscard]] bool repeats(const std::string& topic, size_t hash) {
    if (m_hashes.size() >= MAX_TOPICS) m_hashes.clear();
    return std::exchange(m_hashes[topic], hash) == hash;
  }
  void clear() { m_hashes.clear(); }

 private:
  static constexpr size_t MAX_TOPICS = 1024;
  std::map<std::string, std::optional<size_t>> m_hashes;
};

}  // namespace ecu::koru::com
