#include "tools/tap/live/StopGuard.h"

#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <csignal>

namespace ecu::koru::tap::live {

namespace {

constexpr int PATIENCE_MS = 1000;  // for the end of a write to a terminal that is only slow
constexpr int AGAIN_MS = 50;

/// Returns false after a time, none if it is negative.
bool is_readable(int fd, int timeout_ms) {
  pollfd wait{fd, POLLIN, 0};
  return ::poll(&wait, 1, timeout_ms) > 0;
}

/// Makes room for the write that waits. Output that Ctrl-S has stopped goes on only if it is first suspended
/// by the program itself; to go on also wakes the write.
void discard_output() {
  ::tcflush(STDOUT_FILENO, TCOFLUSH);
  ::tcflow(STDOUT_FILENO, TCOOFF);
  ::tcflow(STDOUT_FILENO, TCOON);
}

void block_terminal_signal() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGTTOU);  // would stop the program if it is in the background
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

}  // namespace

StopGuard::~StopGuard() {
  m_over.raise();
  m_thread.join();
}

void StopGuard::run() const {
  block_terminal_signal();
  pollfd waits[] = {{m_over.fd(), POLLIN, 0}, {m_signals.fd(), POLLIN, 0}};
  while (::poll(waits, std::size(waits), -1) < 0) {
  }
  for (int wait_ms = PATIENCE_MS; !is_readable(m_over.fd(), wait_ms); wait_ms = AGAIN_MS) discard_output();
}

}  // namespace ecu::koru::tap::live
