#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/com/Transport.h"

namespace ecu::koru::tool {

struct BusOptions {
  std::string program;        ///< the program's name in its messages
  std::string host{};         ///< empty: from the configuration file, else the platform's default
  int port = 0;               ///< 0: likewise
  std::string config_file{};  ///< empty: none
  std::string client_name{};  ///< empty: program and process id; the file's belongs to the service
};

/// Returns true if one of the MQTT topic filters matches.
[[nodiscard]] bool matches_any(const std::vector<std::string>& filters, const std::string& topic);

/// A program's connection to the bus, with set-up and clean-up of the client library. The main thread owns
/// and uses it; any thread may use the transport.
class BusConnection {
 public:
  /// Reads the configuration and prepares the client. If that fails, writes why to standard error
  /// and returns null.
  [[nodiscard]] static std::unique_ptr<BusConnection> create(const BusOptions& options);
  ~BusConnection();
  BusConnection(const BusConnection&) = delete;
  BusConnection& operator=(const BusConnection&) = delete;

  /// Connects and waits for the connection. If the broker cannot be reached in time (connect_timeout_ms, here
  /// 5 s unless configured), writes that to standard error and returns false.
  [[nodiscard]] bool open();
  /// Sends pending messages, disconnects and returns `status`. If the transport is stuck in the operating
  /// system, ends the process with that status instead.
  int close(int status);

  [[nodiscard]] com::ITransportClient& transport() { return *m_transport; }
  /// Returns "HOST:PORT".
  [[nodiscard]] const std::string& broker() const { return m_broker; }

 private:
  BusConnection(std::string program, std::unique_ptr<config::Configuration> config);

  std::string m_program;
  std::string m_broker;
  std::unique_ptr<config::Configuration> m_config;
  std::shared_ptr<com::ITransportClient> m_transport;
  bool m_started = false;
};

}  // namespace ecu::koru::tool
