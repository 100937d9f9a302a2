#pragma once

#include <atomic>

namespace ecu::koru::tool {

/// Owns a file descriptor to poll() and closes it.
class Descriptor {
 public:
  /// Throws std::system_error with errno and the text `what` if `fd` is negative.
  Descriptor(int fd, const char* what);
  ~Descriptor();
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  [[nodiscard]] int fd() const { return m_fd; }

 private:
  int m_fd;
};

/// Is readable after raise(). Any thread may raise it.
class Event : public Descriptor {
 public:
  Event();
  void raise();
  void clear();
  [[nodiscard]] bool raised() const { return m_raised; }

 private:
  std::atomic<bool> m_raised = false;
};

/// Is readable after Ctrl-C and SIGTERM. Create it in the main thread after all other threads, which must
/// have blocked the two signals. Before that, a signal ends the process at once.
class StopSignals : public Descriptor {
 public:
  StopSignals();
};

/// Ignores SIGPIPE and SIGXFSZ: if the reader goes away, or a file may not grow any more, the write fails and
/// the process goes on.
void ignore_write_signals();

/// Opens /dev/null for standard descriptors that are closed, before a file or socket gets their number.
void open_standard_descriptors();

}  // namespace ecu::koru::tool
