#include "support/Broker.h"

#include <unistd.h>

#include <filesystem>

namespace test {

namespace {

bool accepts(uint16_t port) {
  const int descriptor = connect_to(port);
  if (descriptor >= 0) close(descriptor);
  return descriptor >= 0;
}

std::string mosquitto() {
  const std::string system_path = "/usr/sbin/mosquitto";  // not in everybody's PATH
  return std::filesystem::exists(system_path) ? system_path : "mosquitto";
}

}  // namespace

Broker::Broker(const std::vector<std::string>& config_lines) : m_port(free_port()) {
  configure(config_lines);
}

void Broker::configure(const std::vector<std::string>& config_lines) {
  std::string text = "per_listener_settings true\npersistence false\nlog_dest stderr\nlog_type all\n";
  if (geteuid() == 0) text += "user root\n";  // it must be able to read the test's files
  text += "listener " + std::to_string(m_port) + " 127.0.0.1\nallow_anonymous true\n";
  for (const auto& line : config_lines) text += line + "\n";
  m_config = m_folder.write("mosquitto.conf", text);
}

bool Broker::start() {
  m_process = std::make_unique<Process>(std::vector<std::string>{mosquitto(), "-c", m_config});
  return eventually([this] { return accepts(m_port) || !m_process->running(); }, 10000) &&
         m_process->running();
}

void Broker::stop() {
  if (!m_process) return;
  thaw();
  m_process->signal(SIGTERM);
  m_process->wait_for_exit(5000);
  m_process.reset();
}

}  // namespace test
