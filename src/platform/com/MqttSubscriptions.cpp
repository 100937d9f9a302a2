#include "platform/com/MqttSubscriptions.h"

#include <mosquittopp.h>

#include <algorithm>
#include <exception>
#include <functional>
#include <string_view>
#include <utility>

#include "platform/base/Logging.h"

namespace ecu::koru::com {

namespace {

constexpr auto LOG = logging::module("koru.com.mqtt");

/// Copies of one message follow each other directly; after this time an identical message is a new one.
constexpr std::chrono::milliseconds COPY_GAP{1000};
/// The most topics whose last message a subscription remembers.
constexpr size_t MAX_SEEN = 1024;

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
  m_one_copy = false;
  m_all.push_back(std::make_shared<Subscription>(Subscription{filter, observer, false, {}}));
  return true;
}

bool MqttSubscriptions::remove(const std::string& filter) {
  const std::lock_guard lock(m_mutex);
  m_one_copy = false;
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
  m_one_copy = false;
  for (const auto& entry : m_all) entry->seen.clear();
}

void MqttSubscriptions::dispatch(const std::string& topic, const Message& message) {
  const size_t hash = hash_of(topic, message);
  const size_t filters = collect(topic, message, hash);
  if (!is_copy(message, hash, filters)) {
    for (const auto& entry : m_matching) call(entry, topic, message);
  }
  m_matching.clear();
  m_last_end = std::chrono::steady_clock::now();
}

/// Fills m_matching and returns how many different subscribed topics match. A retained message comes once for
/// every SUBSCRIBE that matches it, whichever subscription caused that. A subscription that got it when it
/// was published, or after an earlier SUBSCRIBE, does not get it again.
size_t MqttSubscriptions::collect(const std::string& topic, const Message& message, size_t hash) {
  std::set<std::string_view> filters;
  const std::lock_guard lock(m_mutex);
  for (const auto& entry : m_all) {
    if (!matches(entry->filter, topic)) continue;
    filters.insert(entry->filter);
    const bool known = replace_seen(*entry, topic, hash) == hash;
    if (!message.retained || !known) m_matching.push_back(entry);
  }
  return filters.size();
}

/// Returns the hash of the topic's previous message, if there was one.
std::optional<size_t> MqttSubscriptions::replace_seen(Subscription& entry, const std::string& topic,
                                                      size_t hash) {
  if (entry.seen.size() >= MAX_SEEN) entry.seen.clear();
  const auto [seen, added] = entry.seen.try_emplace(topic, hash);
  return added ? std::nullopt : std::optional(std::exchange(seen->second, hash));
}

/// Some brokers send a message once for each of a client's topics that match, others once in all. Copies
/// follow each other with the same bytes. If one is missing, this broker sends no copies.
bool MqttSubscriptions::is_copy(const Message& message, size_t hash, size_t filters) {
  if (message.retained) return false;
  const bool same = hash == m_last_hash && std::chrono::steady_clock::now() - m_last_end < COPY_GAP;
  const std::lock_guard lock(m_mutex);
  if (m_copies_due > 0 && !same) m_one_copy = true;
  if (m_copies_due > 0 && same && !m_one_copy) {
    --m_copies_due;
    return true;
  }
  m_last_hash = hash;
  m_copies_due = filters > 0 ? filters - 1 : 0;
  return false;
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
