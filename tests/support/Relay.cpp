#include "support/Relay.h"

#include <poll.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "support/Support.h"

namespace test {

namespace {

constexpr int STEP_MS = 5;

}  // namespace

Relay::Relay(uint16_t target) : m_port(free_port()), m_listener(listen_on(m_port)), m_target(target) {
  m_thread = std::thread([this] { serve(); });
}

Relay::~Relay() {
  m_ending = true;
  m_thread.join();
  cut_all();
  close(m_listener);
}

void Relay::retarget(uint16_t target) {
  const std::lock_guard lock(m_mutex);
  m_target = target;
  m_cut = true;
  m_connections.clear();
}

std::vector<Relay::Connection> Relay::connections() const {
  const std::lock_guard lock(m_mutex);
  return m_connections;
}

void Relay::serve() {
  while (!m_ending) {
    std::vector<pollfd> watched{{m_listener, POLLIN, 0}};
    for (const Pair& pair : m_pairs) {
      watched.push_back({pair.client, POLLIN, 0});
      watched.push_back({pair.broker, POLLIN, 0});
    }
    poll(watched.data(), watched.size(), STEP_MS);
    {
      const std::lock_guard lock(m_mutex);
      if (std::exchange(m_cut, false)) {
        cut_all();
        continue;
      }
    }
    for (size_t i = m_pairs.size(); i-- > 0;) {
      const Pair pair = m_pairs[i];
      const bool open = (watched[2 * i + 1].revents == 0 || forward(pair, true)) &&
                        (watched[2 * i + 2].revents == 0 || forward(pair, false));
      if (open) continue;
      close(pair.client);
      close(pair.broker);
      m_pairs.erase(m_pairs.begin() + static_cast<std::ptrdiff_t>(i));
    }
    if (watched[0].revents != 0) accept_one();
  }
}

void Relay::accept_one() {
  const int client = accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  const std::lock_guard lock(m_mutex);
  m_connections.push_back({int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec, {}});
  if (const int broker = connect_to(m_target); broker >= 0) {
    m_pairs.push_back({client, broker, m_connections.size() - 1});
  } else {
    close(client);
  }
}

/// False when one end is gone.
bool Relay::forward(const Pair& pair, bool from_client) {
  char buffer[4096];
  const ssize_t count = ::read(from_client ? pair.client : pair.broker, buffer, sizeof buffer);
  if (count <= 0) return false;
  const auto size = static_cast<size_t>(count);
  if (from_client) {
    const std::lock_guard lock(m_mutex);
    if (m_cut) return false;  // the connection is forgotten already
    std::string& sent = m_connections[pair.index].sent;
    sent.append(buffer, std::min(size, KEPT_BYTES - sent.size()));
  }
  return send(from_client ? pair.broker : pair.client, buffer, size, MSG_NOSIGNAL) == count;
}

void Relay::cut_all() {
  for (const Pair& pair : m_pairs) {
    close(pair.client);
    close(pair.broker);
  }
  m_pairs.clear();
}

}  // namespace test
