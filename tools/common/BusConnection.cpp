#include "tools/common/BusConnection.h"

#include <mosquitto.h>
#include <mosquittopp.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iostream>

#include "platform/base/Logging.h"

namespace ecu::koru::tool {

namespace {

using config::Configuration;

/// Reads the file's settings. Returns false if it cannot be read or a line is malformed.
bool read_file(std::unique_ptr<Configuration>& config, const BusOptions& options) {
  std::ifstream file(options.config_file);
  if (!file) {
    std::cerr << options.program << ": cannot read " << options.config_file << '\n';
    return false;
  }
  config::set_config_from_input(config, file);
  // The file may be the service's, so do not warn about keys that are unknown here.
  logging::configure_logging("ERROR");
  const bool good = config->verify();
  logging::configure_logging("WARNING");
  if (!good) std::cerr << options.program << ": " << options.config_file << " is not a configuration\n";
  return good;
}

/// Returns the value that the platform uses: `otherwise` if the configuration has none.
std::string shown(const Configuration& config, const std::string& key, const std::string& otherwise) {
  const std::string value = config.get(key);
  return value.empty() ? otherwise : value;
}

}  // namespace

bool matches_any(const std::vector<std::string>& filters, const std::string& topic) {
  return std::any_of(filters.begin(), filters.end(), [&topic](const auto& filter) {
    bool matches = false;
    return mosquitto_topic_matches_sub(filter.c_str(), topic.c_str(), &matches) == MOSQ_ERR_SUCCESS &&
           matches;
  });
}

std::unique_ptr<BusConnection> BusConnection::create(const BusOptions& options) {
  logging::set_log_mode(logging::LogMode::STDERR);
  logging::configure_logging("WARNING");
  auto config = std::make_unique<Configuration>();
  if (!options.config_file.empty() && !read_file(config, options)) return nullptr;
  config->set_default("connect_timeout_ms", "5000");
  if (!options.host.empty()) config->set("host", options.host);
  if (options.port != 0) config->set("port", std::to_string(options.port));
  // Never use the file's name: the broker would disconnect the service if a second client had it.
  const std::string own_name = options.program + "-" + std::to_string(getpid());
  config->set("client_name", options.client_name.empty() ? own_name : options.client_name);
  return std::unique_ptr<BusConnection>(new BusConnection(options.program, std::move(config)));
}

BusConnection::BusConnection(std::string program, std::unique_ptr<Configuration> config)
    : m_program(std::move(program)),
      m_broker(shown(*config, "host", "127.0.0.1") + ":" + shown(*config, "port", "1883")),
      m_config(std::move(config)) {
  mosqpp::lib_init();
  m_transport = com::create_client(m_config, com::TransportType::MQTT);
}

BusConnection::~BusConnection() {
  close(EXIT_FAILURE);
  m_transport.reset();
  mosqpp::lib_cleanup();
}

bool BusConnection::open() {
  m_started = m_transport->connect();
  if (m_started && m_transport->start()) return true;
  std::cerr << m_program << ": no connection to the broker at " << m_broker << '\n';
  return false;
}

int BusConnection::close(int status) {
  if (!m_started) return status;
  m_started = false;
  if (m_transport->stop()) return status;
  // Do not flush here: all output is flushed already, and a thread that is stuck writing to standard output
  // would block this one.
  std::_Exit(status);
}

}  // namespace ecu::koru::tool
