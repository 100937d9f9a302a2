#pragma once

#include <algorithm>
#include <chrono>

namespace ecu::koru::com {

/// Says how long to wait before the next attempt to connect. The pause after each failure is twice as long as
/// the one before. State only: it has no clock and no lock.
class MqttBackoff {
 public:
  using Duration = std::chrono::milliseconds;

  static constexpr Duration FIRST_PAUSE{1000};
  static constexpr Duration LONGEST_PAUSE{30000};
  /// After a shorter connection the pause keeps growing: a broker may accept every login and soon disconnect.
  static constexpr Duration GOOD_CONNECTION{10000};

  /// Notes that a connection was lost after `time`. After a good one the next pause is the first one again.
  void lost_after(Duration time) {
    if (time >= GOOD_CONNECTION) m_next = FIRST_PAUSE;
  }
  [[nodiscard]] Duration pause() {
    const Duration now = m_next;
    m_next = std::min(2 * now, LONGEST_PAUSE);
    return now;
  }

 private:
  Duration m_next = FIRST_PAUSE;
};

}  // namespace ecu::koru::com
