#pragma once

#include <mosquitto.h>

#include <algorithm>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "proto/nvxproto.pb.h"

namespace test::chaos {

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
  explicit Bus(uint16_t port) {
    mosquitto_lib_init();
    m_client = mosquitto_new(nullptr, true, this);
    mosquitto_threaded_set(m_client, true);
    mosquitto_connect_callback_set(m_client, [](mosquitto* client, void*, int code) {
      if (code == 0) mosquitto_subscribe(client, nullptr, "system/gnss/data", 0);
    });
    mosquitto_message_callback_set(m_client, [](mosquitto*, void* self, const mosquitto_message* message) {
      static_cast<Bus*>(self)->receive(*message);
    });
    m_thread = std::jthread([this, port](const std::stop_token& stop) {
      mosquitto_connect(m_client, "127.0.0.1", port, 60);
      while (!stop.stop_requested()) {
        if (mosquitto_loop(m_client, 50, 1) == MOSQ_ERR_SUCCESS) continue;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        mosquitto_reconnect(m_client);
      }
    });
  }
  ~Bus() {
    m_thread = {};
    mosquitto_destroy(m_client);
  }
  Bus(const Bus&) = delete;
  Bus& operator=(const Bus&) = delete;

  void publish(const std::string& topic, const std::string& payload) {
    mosquitto_publish(m_client, nullptr, topic.c_str(), static_cast<int>(payload.size()), payload.data(), 0,
                      false);
  }
  [[nodiscard]] std::vector<Fix> fixes() const {
    const std::lock_guard lock(m_mutex);
    return m_fixes;
  }
  /// How many records of a status were sent after a time (since boot).
  [[nodiscard]] int64_t count_since(int64_t boot_ns, int status) const {
    const std::lock_guard lock(m_mutex);
    return std::count_if(m_fixes.begin(), m_fixes.end(),
                         [&](const Fix& fix) { return fix.sent_ns > boot_ns && fix.status == status; });
  }

 private:
  void receive(const mosquitto_message& message) {
    constexpr int HEADER = 18, SENT_AT = 10;  // a little-endian stamp, like this machine's
    const auto* const bytes = static_cast<const char*>(message.payload);
    ecu::koru::pb::GnssData data;
    if (message.payloadlen < HEADER || !data.ParseFromArray(bytes + HEADER, message.payloadlen - HEADER))
      return;  // not the service's
    Fix fix{0, static_cast<int64_t>(data.utc_time_us()), data.status()};
    std::memcpy(&fix.sent_ns, bytes + SENT_AT, sizeof fix.sent_ns);
    const std::lock_guard lock(m_mutex);
    m_fixes.push_back(fix);
  }

  mosquitto* m_client = nullptr;
  mutable std::mutex m_mutex;
  std::vector<Fix> m_fixes;
  std::jthread m_thread;
};

}  // namespace test::chaos
