#include "platform/com/MemoryTransport.h"

#include "platform/base/Time.h"

namespace ecu::koru::com {

bool MemoryTransport::is_connected() const {
  const std::lock_guard lock(m_mutex);
  return m_connected;
}

void MemoryTransport::on_connection_change(std::function<void()> observer) {
  const std::lock_guard lock(m_mutex);
  m_connection_observer = std::move(observer);
}

int MemoryTransport::publish(const std::string& topic, const Message& message, Delivery delivery) {
  {
    const std::lock_guard lock(m_mutex);
    if (!m_connected) {
      if (delivery == Delivery::until_sent) m_kept[topic] = message;
      ++m_counts.dropped;
      return -1;
    }
    ++m_counts.sent;
    if (!m_taker) m_records.push_back({topic, message, time_source().steady_ns()});
    if (message.retained) m_retained[topic] = message;
  }
  if (m_taker) m_taker({topic, message, time_source().steady_ns()});
  deliver(topic, message);
  return 0;
}

bool MemoryTransport::subscribe(const std::string& topic,
                                const std::shared_ptr<ISubscriptionObserver>& observer, int /*qos*/) {
  Message kept;
  {
    const std::lock_guard lock(m_mutex);
    const auto [first, last] = m_observers.equal_range(topic);
    for (auto it = first; it != last; ++it) {
      if (it->second.lock() == observer) return true;
    }
    m_observers.emplace(topic, observer);
    const auto retained = m_retained.find(topic);
    if (retained == m_retained.end()) return true;
    kept = retained->second;
  }
  observer->message(topic, kept);
  return true;
}

bool MemoryTransport::unsubscribe(const std::string& topic) {
  const std::lock_guard lock(m_mutex);
  m_unsubscribed.push_back(topic);
  return m_observers.erase(topic) > 0;
}

TransportCounts MemoryTransport::counts() const {
  const std::lock_guard lock(m_mutex);
  return m_counts;
}

void MemoryTransport::hand_records_to(std::function<void(const Record&)> taker) {
  const std::lock_guard lock(m_mutex);
  m_taker = std::move(taker);
}

void MemoryTransport::set_connected(bool connected) {
  std::map<std::string, Message> kept;
  {
    const std::lock_guard lock(m_mutex);
    const bool changed = std::exchange(m_connected, connected) != connected;
    m_counts.reconnects += changed && connected ? 1 : 0;
    if (changed && m_connection_observer) m_connection_observer();
    if (connected) kept.swap(m_kept);
  }
  for (const auto& [topic, message] : kept) publish(topic, message);
}

void MemoryTransport::inject(const std::string& topic, const Message& message) {
  if (message.retained) {
    const std::lock_guard lock(m_mutex);
    m_retained[topic] = message;
  }
  deliver(topic, message);
}

std::vector<MemoryTransport::Record> MemoryTransport::records() const {
  const std::lock_guard lock(m_mutex);
  return m_records;
}

void MemoryTransport::clear_records() {
  const std::lock_guard lock(m_mutex);
  m_records.clear();
}

std::vector<std::string> MemoryTransport::unsubscribed() const {
  const std::lock_guard lock(m_mutex);
  return m_unsubscribed;
}

void MemoryTransport::deliver(const std::string& topic, const Message& message) {
  std::vector<std::shared_ptr<ISubscriptionObserver>> receivers;
  {
    const std::lock_guard lock(m_mutex);
    const auto [first, last] = m_observers.equal_range(topic);
    for (auto it = first; it != last; ++it) {
      if (auto observer = it->second.lock()) receivers.push_back(std::move(observer));
    }
  }
  for (const auto& receiver : receivers) receiver->message(topic, message);
}

}  // namespace ecu::koru::com
