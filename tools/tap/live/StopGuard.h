#pragma once

#include <thread>

#include "tools/common/StopSignals.h"

namespace ecu::koru::tap::live {

/// Lets the program end while its terminal takes no output (Ctrl-S, a connection that hangs), when a write to
/// it waits for ever. If this object still lives a second after SIGINT or SIGTERM, it discards the output
/// that waits and lets the terminal go on, until it is destroyed. Create it on the main thread, which waits
/// for these signals too, once they are blocked in all threads.
class StopGuard {
 public:
  StopGuard() : m_thread([this] { run(); }) {}
  ~StopGuard();
  StopGuard(const StopGuard&) = delete;
  StopGuard& operator=(const StopGuard&) = delete;

 private:
  void run() const;

  const tool::StopSignals m_signals;  // never read: a pending signal stays pending for the main thread
  tool::Event m_over;
  std::thread m_thread;
};

}  // namespace ecu::koru::tap::live
