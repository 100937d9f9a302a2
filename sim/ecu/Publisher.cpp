#include "sim/ecu/Publisher.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "platform/com/Topics.h"

namespace ecu::koru::sim {

namespace {

using namespace std::chrono_literals;

constexpr auto CONFIRMATION_TIME = 5s;
constexpr auto ROOM_STEP = 5ms;
constexpr int ROOM_STEPS = 400;
constexpr size_t BURST = 64;  // the transport always takes that many messages at once

}  // namespace

class Publisher::Echo final : public com::ISubscriptionObserver {
 public:
  void message(const std::string& /*topic*/, const com::Message& message) override {
    const std::lock_guard lock(m_mutex);
    m_payload = message.payload;
    m_changed.notify_all();
  }
  [[nodiscard]] bool wait_for(const std::vector<uint8_t>& payload) {
    std::unique_lock lock(m_mutex);
    return m_changed.wait_for(lock, CONFIRMATION_TIME, [&] { return m_payload == payload; });
  }

 private:
  std::mutex m_mutex;
  std::condition_variable m_changed;
  std::vector<uint8_t> m_payload;
};

Publisher::Publisher(com::ITransportClient& transport)
    : m_transport(transport), m_echo(std::make_shared<Echo>()) {}

bool Publisher::send(const std::vector<Publication>& publications) {
  for (size_t i = 0; i < publications.size(); ++i) {
    if (i % BURST == BURST - 1) std::this_thread::sleep_for(ROOM_STEP);
    if (!send_one(publications[i])) return false;
  }
  return true;
}

bool Publisher::send_confirmed(const std::vector<Publication>& publications) {
  if (publications.empty()) return true;
  m_transport.subscribe(topic::SYSTEM_PARAMETERS, m_echo, 0);
  const bool confirmed = send(publications) && m_echo->wait_for(publications.back().message.payload);
  m_transport.unsubscribe(topic::SYSTEM_PARAMETERS);
  return confirmed;
}

bool Publisher::send_one(const Publication& publication) {
  for (int step = 0; step < ROOM_STEPS; ++step) {
    if (m_transport.publish(publication.topic, publication.message) >= 0) return true;
    if (!m_transport.is_connected()) return false;
    std::this_thread::sleep_for(ROOM_STEP);
  }
  return false;
}

}  // namespace ecu::koru::sim
