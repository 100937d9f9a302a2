#pragma once

#include <signal.h>
#include <unistd.h>

#include <memory>

#include "support/Process.h"
#include "support/Support.h"

namespace test {

/// A private mosquitto on a free port of 127.0.0.1. Everyone may log in unless the added configuration lines
/// say otherwise. They apply to its listener, or to a further one that they begin.
class Broker {
 public:
  explicit Broker(const std::vector<std::string>& config_lines = {}) { configure(config_lines); }
  /// Replaces the added lines from the next start() on.
  void configure(const std::vector<std::string>& config_lines) {
    std::string text = "per_listener_settings true\npersistence false\nlog_dest stderr\nlog_type all\n";
    if (geteuid() == 0) text += "user root\n";  // it must be able to read the test's files
    text += "listener " + std::to_string(m_port) + " 127.0.0.1\nallow_anonymous true\n";
    for (const auto& line : config_lines) text += line + "\n";
    m_config = m_folder.write("mosquitto.conf", text);
  }

  [[nodiscard]] uint16_t port() const { return m_port; }
  /// Starts it, always on the same port, and waits for it. Returns false if it accepts no connections.
  bool start() {
    const std::string program = "/usr/sbin/mosquitto";  // not in everybody's PATH
    m_process = std::make_unique<Process>(
        std::vector<std::string>{std::filesystem::exists(program) ? program : "mosquitto", "-c", m_config});
    return eventually([this] { return accepts() || !m_process->running(); }, 10000) && m_process->running();
  }
  void stop() {
    if (!m_process) return;
    thaw();
    m_process->signal(SIGTERM);
    m_process->wait_for_exit(5000);
    m_process.reset();
  }
  /// Kills it, even if it is frozen. Bytes that it has not read are lost.
  void kill() { m_process.reset(); }
  /// Stops its answers. It keeps its connections, and the system still accepts new ones.
  void freeze() { m_process->signal(SIGSTOP); }
  void thaw() { m_process->signal(SIGCONT); }
  /// Returns its log since the latest start.
  [[nodiscard]] std::string log() const { return m_process ? m_process->err() : std::string(); }

 private:
  [[nodiscard]] bool accepts() const { return close(connect_to(m_port)) == 0; }

  const uint16_t m_port = free_port();
  TempDir m_folder;
  std::string m_config;
  std::unique_ptr<Process> m_process;
};

}  // namespace test
