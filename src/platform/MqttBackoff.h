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

  /// The connection was made: the next pause is the first one again.
  void connected() { m_next = FIRST_PAUSE; }
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
