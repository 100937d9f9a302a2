#pragma once

#include <atomic>

namespace ecu::koru {

/// Ends a wait of the thread that owns it. No call of wake() is lost: a wait that it ends calls clear(), and
/// only then does the owner look at everything that other threads may have changed.
class WakeUp {
 public:
  /// Throws std::system_error if the process can open no more files.
  WakeUp();
  ~WakeUp();
  WakeUp(const WakeUp&) = delete;
  WakeUp& operator=(const WakeUp&) = delete;

  /// Ends the present wait, or the next one. Any thread and signal handlers; errno stays as it is.
  void wake();
  /// Returns true if wake() was called since the last clear().
  [[nodiscard]] bool pending() const { return m_pending; }
  /// Call it after every wait during which fd() became readable. Owner only.
  void clear();
  /// Returns the descriptor to wait for: wake() makes it readable.
  [[nodiscard]] int fd() const { return m_fd; }

 private:
  const int m_fd;
  std::atomic<bool> m_pending{false};
};

}  // namespace ecu::koru
