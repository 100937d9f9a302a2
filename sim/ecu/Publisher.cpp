#include "sim/ecu/Publisher.h"

#include <chrono>
#include <condition_variable>
#include <memory>
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

/// Waits for a message, among those that others publish on its topic.
class Echo final : public com::ISubscriptionObserver {
 public:
  explicit Echo(std::vector<uint8_t> wanted) : m_wanted(std::move(wanted)) {}

  void message(const std::string& /*topic*/, const com::Message& message) override {
    if (message.payload != m_wanted) return;
    const std::lock_guard lock(m_mutex);
    m_came = true;
    m_changed.notify_all();
  }
  [[nodiscard]] bool wait() {
    std::unique_lock lock(m_mutex);
    return m_changed.wait_for(lock, CONFIRMATION_TIME, [&] { return m_came; });
  }

 private:
  const std::vector<uint8_t> m_wanted;
  std::mutex m_mutex;
  std::condition_variable m_changed;
  bool m_came = false;
};

}  // namespace

bool Publisher::send(const std::vector<Publication>& publications) {
  for (size_t i = 0; i < publications.size(); ++i) {
    if (i % BURST == BURST - 1) std::this_thread::sleep_for(ROOM_STEP);
    if (!send_one(publications[i])) return false;
  }
  return true;
}

bool Publisher::send_confirmed(const std::vector<Publication>& publications) {
  if (publications.empty()) return true;
  const auto echo = std::make_shared<Echo>(publications.back().message.payload);
  m_transport.subscribe(topic::SYSTEM_PARAMETERS, echo, 0);
  const bool confirmed = send(publications) && echo->wait();
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
