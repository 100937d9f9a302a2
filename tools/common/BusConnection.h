#pragma once

#include <memory>
#include <string>

#include "platform/com/Transport.h"

namespace ecu::koru::tool {

struct BusOptions {
  std::string program;        ///< names the program in its messages
  std::string host{};         ///< empty: from the configuration file, else the platform's default
  int port = 0;               ///< 0: likewise
  std::string config_file{};  ///< empty: none
  std::string client_name{};  ///< empty: program and process id; that of the file belongs to the service
};

/// One program's connection to the bus, with the client library's set-up and clean-up around it. Owned and
/// used by the main thread; the transport itself may be used by any.
class BusConnection {
 public:
  /// Reads the configuration and prepares the client. Null when that fails; standard error was told.
  [[nodiscard]] static std::unique_ptr<BusConnection> create(const BusOptions& options);
  ~BusConnection();
  BusConnection(const BusConnection&) = delete;
  BusConnection& operator=(const BusConnection&) = delete;

  /// Connects and waits for it. False when the broker cannot be reached in time (connect_timeout_ms, here 5 s
  /// unless configured); standard error was told.
  [[nodiscard]] bool open();
  /// Hands over what is under way and says good-bye. `status` comes back, unless the transport is stuck in
  /// the operating system: then the process ends here with it.
  int close(int status);

  [[nodiscard]] com::ITransportClient& transport() { return *m_transport; }

 private:
  BusConnection(std::string program, std::unique_ptr<config::Configuration> config);

  std::string m_program;
  std::string m_broker;  // "HOST:PORT", for messages
  std::unique_ptr<config::Configuration> m_config;
  std::shared_ptr<com::ITransportClient> m_transport;
  bool m_started = false;
};

}  // namespace ecu::koru::tool
