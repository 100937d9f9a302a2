#pragma once

#include <atomic>

namespace ecu::koru::tool {

/// A file descriptor that poll() reports as readable once something happened. Any thread may raise it.
class Event {
 public:
  Event();
  ~Event();
  Event(const Event&) = delete;
  Event& operator=(const Event&) = delete;
  void raise();
  /// As if nothing had happened.
  void clear();
  [[nodiscard]] bool raised() const { return m_raised; }
  [[nodiscard]] int fd() const { return m_fd; }

 private:
  int m_fd;
  std::atomic<bool> m_raised = false;
};

/// Ctrl-C and SIGTERM as something that poll() reports. Created in the main thread after all other threads,
/// which must have blocked the two signals; until then a signal ends the process at once.
class StopSignals {
 public:
  StopSignals();
  ~StopSignals();
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;
  [[nodiscard]] int fd() const { return m_fd; }

 private:
  int m_fd;
};

/// A reader that went away shall be an error of the write, not the end of the process.
void ignore_broken_pipes();

}  // namespace ecu::koru::tool
