#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace ecu::koru {

/// Reports the service's state to the process that started it, in systemd's notification protocol:
/// "KEY=VALUE" datagrams to the socket that NOTIFY_SOCKET names. Sending never blocks; progress() repeats a
/// message that the manager did not accept. One thread only.
class ServiceManager {
 public:
  /// Makes an object that reports to nobody: every call does nothing.
  ServiceManager() = default;
  ~ServiceManager();
  ServiceManager(const ServiceManager&) = delete;
  ServiceManager& operator=(const ServiceManager&) = delete;

  /// Reads NOTIFY_SOCKET ("/path" or "@abstract"), WATCHDOG_USEC (microseconds) and WATCHDOG_PID (the process
  /// to watch). A value that cannot be used logs a WARNING. A bad NOTIFY_SOCKET switches all reports off; a
  /// bad watchdog value switches only the watchdog off.
  [[nodiscard]] static std::unique_ptr<ServiceManager> from_environment();

  /// Reports that the start is over.
  void ready();
  /// Call it in each pass of the run loop. Feeds the watchdog, at most three times in its interval.
  void progress();
  /// Returns when progress() is to be called next (steady clock, ns), or NEVER.
  [[nodiscard]] int64_t due_ns() const;
  /// Sets the line for the administrator. progress() sends it if it has changed, at most once a second.
  void status(std::string_view text) {
    if (m_status != text) m_status = text;
  }
  /// Reports, without repetition, that the end has begun.
  void stopping();

 private:
  [[nodiscard]] bool open(std::string_view socket);
  bool send(std::string_view text);

  int m_socket = -1;
  sockaddr_un m_address{};
  socklen_t m_address_length = 0;
  int64_t m_watchdog_ns = 0;  // between two feedings; 0: no watchdog
  int64_t m_next_feeding_ns = 0;
  int64_t m_next_status_ns = 0;
  int64_t m_retry_ns = 0;  // after a message that the manager did not accept
  bool m_ready_due = false;
  std::string m_status;
  std::string m_told_status;
};

}  // namespace ecu::koru
