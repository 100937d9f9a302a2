#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace test {

/// A port of 127.0.0.1 whose connections go on to another one, and that remembers what came by.
class Relay {
 public:
  /// How much of what a client sends is kept of each connection.
  static constexpr size_t KEPT_BYTES = 16384;

  struct Connection {
    int64_t at_ns;     ///< monotonic clock
    std::string sent;  ///< by the client, its beginning
  };

  explicit Relay(uint16_t target);
  ~Relay();
  Relay(const Relay&) = delete;
  Relay& operator=(const Relay&) = delete;

  [[nodiscard]] uint16_t port() const { return m_port; }
  /// Cuts every connection and forgets it; later ones go to `target`. Any thread.
  void retarget(uint16_t target);
  /// All since the start or the last retarget(), oldest first. Any thread.
  [[nodiscard]] std::vector<Connection> connections() const;

 private:
  struct Pair {
    int client, broker;
    size_t index;  // in m_connections
  };
  void serve();
  void accept_one();
  [[nodiscard]] bool forward(const Pair& pair, bool from_client);
  void cut_all();

  const uint16_t m_port;
  const int m_listener;
  std::vector<Pair> m_pairs;  // of the thread
  mutable std::mutex m_mutex;
  uint16_t m_target;
  bool m_cut = false;
  std::vector<Connection> m_connections;
  std::atomic<bool> m_ending = false;
  std::thread m_thread;
};

}  // namespace test
