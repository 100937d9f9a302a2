#include "platform/com/MqttSubscriptions.h"

#include <mosquittopp.h>

#include <algorithm>
#include <exception>
#include <functional>
#include <string_view>

#include "platform/base/Logging.h"
#include "platform/base/Time.h"

namespace ecu::koru::com {

namespace {

constexpr auto LOG = logging::module("koru.com.mqtt");

bool same_owner(const std::weak_ptr<ISubscriptionObserver>& held,
                const MqttSubscriptions::Observer& observer) {
  return !held.owner_before(observer) && !observer.owner_before(held);
}

size_t hash_of(const std::string& topic, const Message& message) {
  const std::string_view bytes(reinterpret_cast<const char*>(message.payload.data()), message.payload.size());
  return std::hash<std::string_view>{}(bytes)*31 + std::hash<std::string>{}(topic);
}

bool matches(const std::string& filter, const std::string& topic) {
  bool result = false;
  return mosqpp::topic_matches_sub(filter.c_str(), topic.c_str(), &result) == MOSQ_ERR_SUCCESS && result;
}

}  // namespace

bool MqttSubscriptions::add(const std::string& filter, const Observer& observer) {
  const std::lock_guard lock(m_mutex);
  std::erase_if(m_all, [](const Pointer& entry) { return entry->observer.expired(); });
  for (const auto& entry : m_all) {
    if (entry->filter == filter && same_owner(entry->observer, observer)) return false;
  }
  m_copies.learn_anew();
  m_all.push_back(std::make_shared<Subscription>(Subscription{filter, observer, false, {}}));
  return true;
}

bool MqttSubscriptions::remove(const std::string& filter) {
  const std::lock_guard lock(m_mutex);
  m_copies.learn_anew();
  return std::erase_if(m_all, [&](const Pointer& entry) {
           if (entry->filter == filter) entry->removed = true;
           return entry->removed;
         }) > 0;
}

void MqttSubscriptions::wait_until_idle(const std::string& filter) {
  std::unique_lock lock(m_mutex);
  const Pointer current = m_current;
  if (!current || current->filter != filter) return;
  m_idle.wait(lock, [&] { return m_current != current; });
}

std::set<std::string> MqttSubscriptions::filters() const {
  const std::lock_guard lock(m_mutex);
  std::set<std::string> result;
  for (const auto& entry : m_all) {
    if (!entry->observer.expired()) result.insert(entry->filter);
  }
  return result;
}

void MqttSubscriptions::forget_retained() {
  const std::lock_guard lock(m_mutex);
  m_copies.learn_anew();
  for (const auto& entry : m_all) entry->seen.clear();
}

void MqttSubscriptions::dispatch(const std::string& topic, const Message& message) {
  for (const auto& entry : receivers(topic, message)) call(entry, topic, message);
  const std::lock_guard lock(m_mutex);
  m_copies.delivered(steady_now());
}

/// A subscription that got a retained message when it was published, or after an earlier SUBSCRIBE, does not
/// get it again.
std::vector<MqttSubscriptions::Pointer> MqttSubscriptions::receivers(const std::string& topic,
                                                                     const Message& message) {
  const size_t hash = hash_of(topic, message);
  std::set<std::string_view> filters;
  std::vector<Pointer> result;
  const std::lock_guard lock(m_mutex);
  for (const auto& entry : m_all) {
    if (!matches(entry->filter, topic)) continue;
    filters.insert(entry->filter);
    const bool known = entry->seen.repeats(topic, hash);
    if (!message.retained || !known) result.push_back(entry);
  }
  if (m_copies.is_copy(hash, message.retained, filters.size(), steady_now())) result.clear();
  return result;
}

void MqttSubscriptions::call(const Pointer& subscription, const std::string& topic, const Message& message) {
  Observer observer;
  {
    const std::lock_guard lock(m_mutex);
    if (subscription->removed) return;
    observer = subscription->observer.lock();
    if (!observer) return;
    m_current = subscription;
  }
  try {
    observer->message(topic, message);
  } catch (const std::exception& error) {
    LOG.error("The observer of \"", logging::escaped(topic), "\" failed: ", logging::escaped(error.what()));
  } catch (...) {
    LOG.error("The observer of \"", logging::escaped(topic), "\" failed");
  }
  observer.reset();  // perhaps the last owner, so released before m_idle is notified
  const std::lock_guard lock(m_mutex);
  m_current.reset();
  m_idle.notify_all();
}

}  // namespace ecu::koru::com
