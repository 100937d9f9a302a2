#include "tools/tap/NmeaServer.h"

#include <netinet/in.h>
#include <netinet/tcp.h>

#include <cerrno>
#include <cstring>
#include <iostream>

namespace ecu::koru::tap {

namespace {

constexpr size_t MAX_CLIENTS = 32;

void set_option(int descriptor, int level, int name, int value) {
  static_cast<void>(setsockopt(descriptor, level, name, &value, sizeof value));
}

/// Returns a socket that listens; -1 with errno if that fails.
int listen_on(const ListenAddress& address) {
  constexpr int QUEUE = 16;
  constexpr int SEND_BUFFER = 32768;  // about a minute at 1 Hz; accepted sockets inherit it
  const int out = socket(address.address.ss_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (out < 0) return out;
  set_option(out, SOL_SOCKET, SO_REUSEADDR, 1);
  set_option(out, SOL_SOCKET, SO_SNDBUF, SEND_BUFFER);
  set_option(out, IPPROTO_TCP, TCP_NODELAY, 1);
  const auto* const raw = reinterpret_cast<const sockaddr*>(&address.address);
  if (bind(out, raw, address.length) == 0 && listen(out, QUEUE) == 0) return out;
  const int error = errno;
  ::close(out);
  errno = error;
  return -1;
}

/// Discards bytes that a client sent. Returns false if it closed the connection.
bool discard_received(int descriptor) {
  char bytes[512];
  while (true) {
    const ssize_t count = recv(descriptor, bytes, sizeof bytes, MSG_DONTWAIT);
    if (count == 0) return false;
    if (count < 0) return errno == EAGAIN || errno == EINTR;
  }
}

/// Returns how many bytes fitted; -1 if the connection is closed.
ssize_t send_some(int descriptor, std::string_view bytes) {
  const ssize_t count = ::send(descriptor, bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
  return count < 0 && (errno == EAGAIN || errno == EINTR) ? 0 : count;
}

}  // namespace

bool NmeaServer::open() {
  const int descriptor = listen_on(m_address);
  if (descriptor < 0) return fail("cannot listen on " + m_address.text + ": " + std::strerror(errno));
  m_listener = std::make_unique<tool::Descriptor>(descriptor, "listener");
  return true;
}

void NmeaServer::add_waits(std::vector<pollfd>& waits) const {
  NmeaFeed::add_waits(waits);
  waits.push_back({m_listener->fd(), POLLIN, 0});
  for (const auto& client : m_clients) {
    const auto events = static_cast<short>(client.unsent.empty() ? POLLIN : POLLIN | POLLOUT);
    waits.push_back({client.socket.fd(), events, 0});
  }
}

void NmeaServer::hand_over(std::string_view sentences) {
  if (m_listener == nullptr) return;
  m_clients.remove_if([&](Client& client) { return !send(client, sentences); });
  accept_clients();
}

void NmeaServer::accept_clients() {
  while (true) {
    ListenAddress peer{.host = {}, .text = "a client", .address = {}, .length = sizeof peer.address};
    auto* const raw = reinterpret_cast<sockaddr*>(&peer.address);
    const int descriptor = accept4(m_listener->fd(), raw, &peer.length, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (descriptor < 0) return;
    static_cast<void>(name_address(peer));
    add_client(peer.text, descriptor);
  }
}

void NmeaServer::add_client(const std::string& name, int descriptor) {
  if (m_clients.size() < MAX_CLIENTS) {
    m_clients.emplace_back(name, descriptor);
    return;
  }
  ::close(descriptor);
  std::cerr << "satnav-tap: " << name << " is refused: there are " << MAX_CLIENTS << " clients already\n";
}

bool NmeaServer::send(Client& client, std::string_view sentences) {
  const int descriptor = client.socket.fd();
  if (!discard_received(descriptor)) return false;
  ssize_t count = client.unsent.empty() ? 0 : send_some(descriptor, client.unsent);
  if (count < 0) return false;
  client.unsent.erase(0, static_cast<size_t>(count));
  if (sentences.empty()) return true;
  if (!client.unsent.empty()) {
    std::cerr << "satnav-tap: " << client.name << " is dropped: it does not read\n";
    return false;
  }
  count = send_some(descriptor, sentences);
  if (count >= 0) client.unsent = sentences.substr(static_cast<size_t>(count));
  return count >= 0;
}

}  // namespace ecu::koru::tap
