#pragma once

#include <array>
#include <chrono>
#include <functional>
#include <map>
#include <string>

#include "platform/com/Transport.h"

namespace ecu::koru::com {

/// The books of what is to be sent: the messages that the client library has taken and not yet written to the
/// socket, and those that are kept until they are written. State only: no I/O, no clock, no lock of its own.
class MqttOutbox {
 public:
  using Time = std::chrono::steady_clock::time_point;

  /// A fix is a burst of messages within a few milliseconds: what is unwritten after this time, with a socket
  /// that takes no more, is not of the present burst.
  static constexpr std::chrono::milliseconds BLOCKED_LIMIT{50};
  /// The same with a socket that nobody has tried: the delivery thread gets no processor, or an observer
  /// holds it.
  static constexpr std::chrono::milliseconds UNTRIED_LIMIT{1000};
  /// Messages that the library may hold at a time.
  static constexpr size_t CAPACITY = 256;

  /// False while a message handed over now would wait behind old ones.
  [[nodiscard]] bool accepts(Time now) const;
  /// The library has taken the message `mid`.
  void taken(int mid, Time now);
  /// The library has written the message `mid`, and so all that it took before.
  void written(int mid);
  /// Whether the library was left with unwritten bytes after it last tried the socket.
  void set_blocked(bool blocked) { m_blocked = blocked; }
  [[nodiscard]] bool empty() const { return m_count == 0; }
  /// The connection is gone, with everything unwritten.
  void clear();

  /// Keeps the newest message of the topic until it is written.
  void keep(const std::string& topic, const Message& message);
  /// True while the topic's kept message is in the library's hands.
  [[nodiscard]] bool on_its_way(const std::string& topic) const;
  /// Offers every kept message that is not on its way to `send`, which returns the library's number of it, or
  /// 0 when it was not taken (a negative number: it never will be, it is forgotten).
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
  bool m_blocked = false;
  std::map<std::string, Kept> m_kept;
};

}  // namespace ecu::koru::com
