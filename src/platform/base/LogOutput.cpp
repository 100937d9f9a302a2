#include "platform/base/LogOutput.h"

#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "platform/base/Time.h"

namespace ecu::koru::logging {

namespace {

constexpr int64_t CONNECT_AGAIN_NS = 1'000'000'000;

}  // namespace

// -- Standard output and standard error

StreamOutput::~StreamOutput() {
  if (m_own >= 0) ::close(m_own);
}

/// O_NONBLOCK would affect every process that shares the open file, such as a shell, so a pipe or terminal is
/// opened once more. A file is not: it never makes a writer wait, and its position must stay shared.
void StreamOutput::examine() {
  struct stat status {};
  if (fstat(m_descriptor, &status) == 0 && S_ISSOCK(status.st_mode)) {
    m_kind = Kind::SOCKET;
    return;
  }
  m_kind = Kind::SHARED_DESCRIPTION;
  if (!S_ISFIFO(status.st_mode) && !S_ISCHR(status.st_mode)) return;
  const std::string path = "/proc/self/fd/" + std::to_string(m_descriptor);
  m_own = ::open(path.c_str(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  if (m_own >= 0) m_kind = Kind::OWN_DESCRIPTION;
}

size_t StreamOutput::write_some(std::string_view bytes) {
  ssize_t count = -1;
  do {
    if (m_kind == Kind::SOCKET) {
      count = ::send(m_descriptor, bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    } else if (m_kind == Kind::OWN_DESCRIPTION) {
      count = ::write(m_own, bytes.data(), bytes.size());
    } else {
      // After poll() has reported room, a write of up to PIPE_BUF bytes does not block.
      pollfd writable{m_descriptor, POLLOUT, 0};
      const bool takes = poll(&writable, 1, 0) == 1;
      count = takes ? ::write(m_descriptor, bytes.data(), std::min<size_t>(bytes.size(), PIPE_BUF)) : 0;
    }
  } while (count < 0 && errno == EINTR);
  return static_cast<size_t>(std::max<ssize_t>(count, 0));
}

bool StreamOutput::put(std::string_view record) {
  if (m_kind == Kind::UNKNOWN) examine();
  const auto write = [this](std::string_view bytes) {
    size_t written = 0;
    for (size_t count = 1; written < bytes.size() && count > 0; written += count) {
      count = write_some(bytes.substr(written));
    }
    return written;
  };
  if (!m_rest.empty()) {
    m_rest.erase(0, write(m_rest));
    if (!m_rest.empty()) return false;
  }
  const size_t written = write(record);
  if (written == 0) return false;
  m_rest = record.substr(written);
  return true;
}

// -- The system's log

bool SyslogOutput::put(std::string_view record) {
  for (int tries = 0; tries < 2; ++tries) {
    if (m_socket < 0 && !connect()) return false;
    Sent sent = send(record);
    if (sent == Sent::FULL && may_connect_again() && connect()) sent = send(record);
    if (sent != Sent::NO_CONNECTION) return sent == Sent::ALL;
    close();
  }
  return false;
}

/// A restarted log daemon binds a new socket. The old one never ends, only fills up, while anybody holds it.
bool SyslogOutput::may_connect_again() {
  const int64_t now_ns = time_source().steady_ns();
  if (m_is_stream || now_ns < m_next_connect_ns) return false;
  m_next_connect_ns = now_ns + CONNECT_AGAIN_NS;
  return true;
}

bool SyslogOutput::connect() {
  return connect(SOCK_DGRAM) || (errno == EPROTOTYPE && connect(SOCK_STREAM));
}

bool SyslogOutput::connect(int type) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  m_path.copy(static_cast<char*>(address.sun_path), sizeof address.sun_path - 1);
  const int socket = ::socket(AF_UNIX, type | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (socket < 0) return false;
  if (::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    const int error = errno;
    ::close(socket);
    errno = error;
    return false;
  }
  close();
  m_socket = socket;
  m_is_stream = type == SOCK_STREAM;
  return true;
}

SyslogOutput::Sent SyslogOutput::send(std::string_view record) {
  std::string bytes(record);
  if (m_is_stream) bytes.push_back('\0');
  ssize_t count = -1;
  do {
    count = ::send(m_socket, bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
  } while (count < 0 && errno == EINTR);
  if (count == static_cast<ssize_t>(bytes.size())) return Sent::ALL;
  // After half a record on a stream, the next record could not be told from its rest.
  if (count >= 0) close();
  const bool full = count >= 0 || errno == EAGAIN || errno == ENOBUFS || errno == EMSGSIZE;
  return full ? Sent::FULL : Sent::NO_CONNECTION;
}

void SyslogOutput::close() {
  if (m_socket >= 0) ::close(m_socket);
  m_socket = -1;
}

}  // namespace ecu::koru::logging
