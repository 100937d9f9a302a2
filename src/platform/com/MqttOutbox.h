#pragma once

#include <array>
#include <chrono>
#include <functional>
#include <map>
#include <string>

#include "platform/com/Transport.h"

namespace ecu::koru::com {

/// Keeps account of the messages to be sent: those that the client library has taken and not yet written to
/// the socket, and those that are kept until they are written. State only: no I/O, no clock, no lock.
class MqttOutbox {
 public:
  using Time = std::chrono::nanoseconds;  // steady clock

  /// A fix is a burst of messages within a few milliseconds. A message that is still unwritten after this
  /// time, because the socket is full, does not belong to the present burst.
  static constexpr std::chrono::milliseconds BLOCKED_LIMIT{50};
  /// The most messages that the library may hold at a time.
  static constexpr size_t CAPACITY = 256;

  /// Returns false if a message handed over now would wait for old ones.
  [[nodiscard]] bool accepts(Time now) const;
  /// Notes that the library has taken the message `mid`.
  void taken(int mid, Time now);
  /// Notes that the library has written the message `mid`, and so all that it took before.
  void written(int mid);
  [[nodiscard]] bool empty() const { return m_count == 0; }
  /// Forgets all unwritten messages of a lost connection, except those that are kept.
  void clear();

  /// Keeps the newest message of the topic until it is written.
  void keep(const std::string& topic, const Message& message) { m_kept[topic] = {message, 0}; }
  /// Returns true if the topic has a kept message that the library has not taken.
  [[nodiscard]] bool is_waiting(const std::string& topic) const;
  /// Offers every kept message that is not on its way to `send`. `send` returns the library's number of the
  /// message, 0 if it was not taken, or a negative number if it never will be and is to be forgotten.
  void send_kept(Time now, const std::function<int(const std::string& topic, const Message&)>& send);

 private:
  struct Entry {
    int mid;
    Time since;
  };
  struct Kept {
    Message message;
    int mid = 0;  // 0: not on its way
  };

  std::array<Entry, CAPACITY> m_entries{};  // a ring
  size_t m_first = 0;
  size_t m_count = 0;
  std::map<std::string, Kept> m_kept;
};

}  // namespace ecu::koru::com
