#pragma once

#include <algorithm>
#include <chrono>

namespace ecu::koru::com {

/// How long to wait before the next try to connect: a pause after each failure, twice as long as the one
/// before. State only: no clock, no lock of its own.
class MqttBackoff {
 public:
  using Duration = std::chrono::milliseconds;

  static constexpr Duration FIRST_PAUSE{1000};
  static constexpr Duration LONGEST_PAUSE{30000};
  /// A broker that accepts every login and soon closes the connection again must not be called every second.
  static constexpr Duration GOOD_CONNECTION{10000};

  /// A connection was lost after so long: after a good one the next pause is the first one again.
  void lost_after(Duration time) {
    if (time >= GOOD_CONNECTION) m_next = FIRST_PAUSE;
  }
  /// The pause after a failure.
  [[nodiscard]] Duration pause() {
    const Duration now = m_next;
    m_next = std::min(2 * now, LONGEST_PAUSE);
    return now;
  }

 private:
  Duration m_next = FIRST_PAUSE;
};

}  // namespace ecu::koru::com
