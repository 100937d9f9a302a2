#pragma once

#include <httplib.h>

#include <atomic>

namespace ecu::koru::tap {

/// The library's server, which limits only the time between two pieces of a request. Here a whole connection
/// is limited: it has one request, of so many bytes, and a time that counts until the answer is sent. Include
/// this only in files that are built with the time_t of the distribution's libraries.
class HttpServer final : public httplib::Server {
 public:
  /// Drops the clients that still wait for a thread, so that stop() takes no longer than one connection.
  void refuse_clients() { m_refusing = true; }

 private:
  bool process_and_close_socket(socket_t socket) override;

  std::atomic<bool> m_refusing = false;
};

}  // namespace ecu::koru::tap
