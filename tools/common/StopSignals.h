#pragma once

#include <atomic>

namespace ecu::koru::tool {

/// A file descriptor that poll() reports as readable after raise(). Any thread may raise it.
class Event {
 public:
  Event();
  ~Event();
  Event(const Event&) = delete;
  Event& operator=(const Event&) = delete;
  void raise();
  void clear();
  [[nodiscard]] bool raised() const { return m_raised; }
  [[nodiscard]] int fd() const { return m_fd; }

 private:
  int m_fd;
  std::atomic<bool> m_raised = false;
};

/// Makes poll() report Ctrl-C and SIGTERM. Create it in the main thread after all other threads, which must
/// have blocked the two signals. Before that, a signal ends the process at once.
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

/// Ignores SIGPIPE: if the reader goes away, the write fails and the process goes on.
void ignore_broken_pipes();

}  // namespace ecu::koru::tool
