#pragma once

#include <mosquitto.h>

#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace test {

/// One received position record. Times of the machine's own clocks.
struct Fix {
  int64_t sent_ns = 0;  ///< since boot, from the envelope
  int64_t utc_us = 0;   ///< 0: none
  int status = 0;
};

/// A subscriber and publisher of the chaos run's own: it holds on to its broker whatever happens to that, and
/// decodes with nothing of the service but the message. Its functions may be called from any thread.
class Bus {
 public:
  explicit Bus(uint16_t port);
  Bus(const Bus&) = delete;
  Bus& operator=(const Bus&) = delete;
  ~Bus();

  /// False when it cannot be handed to the broker now.
  bool publish(const std::string& topic, const std::string& payload);
  [[nodiscard]] std::vector<Fix> fixes() const;
  /// How many records of a status were sent after a time (since boot).
  [[nodiscard]] int64_t count_since(int64_t boot_ns, int status) const;

 private:
  void receive(const mosquitto_message& message);

  mosquitto* m_client = nullptr;
  mutable std::mutex m_mutex;
  std::vector<Fix> m_fixes;
  std::jthread m_thread;
};

}  // namespace test
