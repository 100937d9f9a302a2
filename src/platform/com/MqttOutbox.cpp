#include "platform/com/MqttOutbox.h"

namespace ecu::koru::com {

bool MqttOutbox::accepts(Time now) const {
  if (m_count == 0) return true;
  return m_count < CAPACITY && now - m_entries[m_first].since <= BLOCKED_LIMIT;
}

void MqttOutbox::taken(int mid, Time now) {
  m_entries[(m_first + m_count) % CAPACITY] = {mid, now};
  ++m_count;
}

void MqttOutbox::written(int mid) {
  for (bool found = false; m_count > 0 && !found; --m_count) {
    const int each = m_entries[m_first].mid;
    found = each == mid;
    m_first = (m_first + 1) % CAPACITY;
    std::erase_if(m_kept, [each](const auto& kept) { return kept.second.mid == each; });
  }
}

void MqttOutbox::clear() {
  m_count = 0;
  for (auto& [topic, kept] : m_kept) kept.mid = 0;
}

bool MqttOutbox::is_waiting(const std::string& topic) const {
  const auto kept = m_kept.find(topic);
  return kept != m_kept.end() && kept->second.mid == 0;
}

void MqttOutbox::send_kept(Time now, const std::function<int(const std::string&, const Message&)>& send) {
  for (auto it = m_kept.begin(); it != m_kept.end();) {
    auto& [topic, kept] = *it;
    if (kept.mid == 0 && accepts(now)) {
      kept.mid = send(topic, kept.message);
      if (kept.mid > 0) taken(kept.mid, now);
    }
    it = kept.mid < 0 ? m_kept.erase(it) : std::next(it);
  }
}

}  // namespace ecu::koru::com
