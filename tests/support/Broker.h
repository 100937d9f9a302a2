#pragma once

#include <signal.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "support/Process.h"
#include "support/Support.h"

namespace test {

/// A mosquitto of the test's own on a free port of 127.0.0.1. Everyone may log in unless the added lines say
/// otherwise; they stand behind the listener's, so `cafile`, `password_file` and their like belong to it, or
/// to a further listener that they begin.
class Broker {
 public:
  explicit Broker(const std::vector<std::string>& config_lines = {});
  /// Other lines, from the next start() on.
  void configure(const std::vector<std::string>& config_lines);

  [[nodiscard]] uint16_t port() const { return m_port; }
  [[nodiscard]] pid_t pid() const { return m_process ? m_process->pid() : -1; }
  /// Starts it (again, on the same port) and waits until it accepts connections; false when it does not.
  bool start();
  /// Ends it; its connections are closed.
  void stop();
  /// Ends it at once, also when it is frozen: what it has not read is gone.
  void kill() { m_process.reset(); }
  /// It keeps its connections, and new ones are accepted by the system, but it no longer answers.
  void freeze() { m_process->signal(SIGSTOP); }
  void thaw() { m_process->signal(SIGCONT); }
  /// Its log so far (of the present start).
  [[nodiscard]] std::string log() const { return m_process ? m_process->err() : std::string(); }

 private:
  uint16_t m_port;
  TempDir m_folder;
  std::string m_config;
  std::unique_ptr<Process> m_process;
};

}  // namespace test
