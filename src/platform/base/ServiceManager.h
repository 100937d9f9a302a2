#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace ecu::koru {

/// Tells the process that started the service how it is, in systemd's notification protocol: datagrams
/// "KEY=VALUE" to the socket that NOTIFY_SOCKET names. Sending never blocks; what the manager does not take
/// is said again at the next sign of progress. One thread.
class ServiceManager {
 public:
  /// Nobody to tell: every call does nothing.
  ServiceManager() = default;
  ~ServiceManager();
  ServiceManager(const ServiceManager&) = delete;
  ServiceManager& operator=(const ServiceManager&) = delete;

  /// From NOTIFY_SOCKET ("/path" or "@abstract"), WATCHDOG_USEC (microseconds) and WATCHDOG_PID (whose
  /// watchdog it is). A value that cannot be used is one WARNING record and counts as absent.
  [[nodiscard]] static std::unique_ptr<ServiceManager> from_environment();

  /// The start is over.
  void ready();
  /// One pass of the run loop is done. Feeds the watchdog, at most three times in its interval.
  void progress();
  /// One line for the administrator; told by progress() when it changed, at most once a second. `text` must
  /// outlive this object.
  void status(std::string_view text) { m_status = text; }
  /// The end has begun.
  void stopping();

 private:
  [[nodiscard]] bool open(std::string_view socket);
  bool send(std::string_view text) const;

  int m_socket = -1;
  sockaddr_un m_address{};
  socklen_t m_address_length = 0;
  int64_t m_watchdog_ns = 0;  // between two feedings; 0: no watchdog
  int64_t m_next_feeding_ns = 0;
  int64_t m_next_status_ns = 0;
  bool m_ready_due = false;
  std::string_view m_status;
  std::string_view m_told_status;
};

}  // namespace ecu::koru
