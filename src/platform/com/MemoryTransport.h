#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "platform/com/Transport.h"

namespace ecu::koru::com {

/// A bus inside the process: the version of the transport for tests and for virtual time. publish() records a
/// message and delivers it on the caller's thread. Retained messages reach later subscribers. Topics are
/// exact, without wildcards.
class MemoryTransport final : public ITransportClient {
 public:
  struct Record {
    std::string topic;
    Message message;
    int64_t steady_ns;  ///< when it was published
  };

  bool connect() override { return true; }
  bool start() override { return is_connected(); }
  bool stop() override { return true; }
  [[nodiscard]] bool is_connected() const override;
  void on_connection_change(std::function<void()> observer) override;
  int publish(const std::string& topic, const Message& message, Delivery delivery = Delivery::once) override;
  bool subscribe(const std::string& topic, const std::shared_ptr<ISubscriptionObserver>& observer,
                 int qos) override;
  bool unsubscribe(const std::string& topic) override;
  [[nodiscard]] TransportCounts counts() const override;
  [[nodiscard]] std::chrono::milliseconds read_timeout() const override {
    return std::chrono::milliseconds(0);
  }

  /// From now on publish() hands its records to `taker`, on the caller's thread, and keeps none.
  void hand_records_to(std::function<void(const Record&)> taker);
  /// While false, publish() fails and keeps only `until_sent` messages.
  void set_connected(bool connected);
  /// Delivers a message as another program on the bus would; it is not recorded.
  void inject(const std::string& topic, const Message& message);
  /// Returns the published messages, oldest first.
  [[nodiscard]] std::vector<Record> records() const;
  void clear_records();
  /// Returns the topics given to unsubscribe(), oldest first.
  [[nodiscard]] std::vector<std::string> unsubscribed() const;

 private:
  void deliver(const std::string& topic, const Message& message);

  mutable std::mutex m_mutex;
  bool m_connected = true;
  std::function<void()> m_connection_observer;
  std::function<void(const Record&)> m_taker;
  std::vector<Record> m_records;
  TransportCounts m_counts;
  std::map<std::string, Message> m_retained;
  std::map<std::string, Message> m_kept;
  std::multimap<std::string, std::weak_ptr<ISubscriptionObserver>> m_observers;
  std::vector<std::string> m_unsubscribed;
};

}  // namespace ecu::koru::com
