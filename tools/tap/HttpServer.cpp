#include "tools/tap/HttpServer.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "platform/base/Time.h"

namespace ecu::koru::tap {

namespace {

constexpr int64_t CONNECTION_NS = 1'000'000'000;
constexpr size_t MAX_REQUEST = 16U << 10U;

/// One connection, whose reads and writes fail when its time is over.
class BriefStream final : public httplib::Stream {
 public:
  explicit BriefStream(socket_t socket) : m_socket(socket) {}

  [[nodiscard]] bool is_readable() const override { return wait(POLLIN); }
  [[nodiscard]] bool is_writable() const override { return wait(POLLOUT); }
  ssize_t read(char* out, size_t size) override;
  ssize_t write(const char* bytes, size_t size) override;
  // The answer does not depend on the addresses.
  void get_remote_ip_and_port(std::string& /*ip*/, int& /*port*/) const override {}
  void get_local_ip_and_port(std::string& /*ip*/, int& /*port*/) const override {}
  [[nodiscard]] socket_t socket() const override { return m_socket; }

 private:
  [[nodiscard]] bool wait(short events) const;

  const socket_t m_socket;
  const int64_t m_end_ns = time_source().steady_ns() + CONNECTION_NS;
  size_t m_room = MAX_REQUEST;  // bytes that may still come
};

/// Returns false if the time is over.
bool BriefStream::wait(short events) const {
  const int64_t left_ms = (m_end_ns - time_source().steady_ns()) / 1'000'000;
  pollfd client{m_socket, events, 0};
  return left_ms > 0 && ::poll(&client, 1, static_cast<int>(left_ms)) > 0;
}

ssize_t BriefStream::read(char* out, size_t size) {
  if (m_room == 0 || !wait(POLLIN)) return -1;
  const ssize_t count = ::recv(m_socket, out, std::min(size, m_room), MSG_DONTWAIT);
  if (count > 0) m_room -= static_cast<size_t>(count);
  return count;
}

ssize_t BriefStream::write(const char* bytes, size_t size) {
  for (size_t sent = 0; sent < size;) {
    if (!wait(POLLOUT)) return -1;
    const ssize_t count = ::send(m_socket, bytes + sent, size - sent, MSG_DONTWAIT | MSG_NOSIGNAL);
    if (count < 0 && errno != EAGAIN && errno != EINTR) return -1;
    sent += static_cast<size_t>(std::max<ssize_t>(count, 0));
  }
  return static_cast<ssize_t>(size);
}

}  // namespace

bool HttpServer::process_and_close_socket(socket_t socket) {
  BriefStream stream(socket);
  bool closed = false;
  const bool good = !m_refusing && process_request(stream, true, closed, nullptr);
  ::shutdown(socket, SHUT_RDWR);
  ::close(socket);
  return good;
}

}  // namespace ecu::koru::tap
