#include "tools/tap/Output.h"

#include <chrono>
#include <cstring>
#include <thread>

#include "tools/common/BusConnection.h"

namespace ecu::koru::tap {

void Output::start(const Moment& beginning, bool live) {
  begin(beginning, live);
  m_started = true;
}

void Output::message(const std::string& topic, const com::Message& message) {
  const std::lock_guard lock(m_taking);
  const bool again = message.timestamp_ns == m_last_ns && topic == m_last_topic;
  if (again || !m_started || m_ended || m_finished.raised()) return;
  m_last_ns = message.timestamp_ns;
  m_last_topic = topic;
  take({.topic = topic,
        .payload = message.payload,
        .wall_us = wall_us_of(message.timestamp_ns),
        .boot_ns = message.timestamp_ns,
        .retained = message.retained});
}

void Output::deliver(const Arrival& arrival) {
  const std::string topic(arrival.topic);
  const bool wanted = tool::matches_any(topics(), topic);
  const std::lock_guard lock(m_taking);
  if (wanted && !m_ended && !m_finished.raised()) take(arrival);
}

bool Output::end() {
  constexpr int TRIES = 100;
  constexpr auto PAUSE = std::chrono::milliseconds(10);
  for (int i = 0; i < TRIES; ++i) {
    if (const std::unique_lock lock(m_taking, std::try_to_lock); lock.owns_lock()) {
      m_ended = true;
      return true;
    }
    std::this_thread::sleep_for(PAUSE);
  }
  return false;
}

std::string cannot_write(const std::string& name, int error) {
  return "cannot write" + (name.empty() ? "" : " " + name) + ": " + std::strerror(error);
}

}  // namespace ecu::koru::tap
