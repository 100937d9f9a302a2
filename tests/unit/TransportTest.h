#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <mosquittopp.h>

#include <atomic>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "platform/Transport.h"
#include "support/Broker.h"
#include "support/LogCapture.h"

/// What the transport's test programs share.
namespace transport_test {

using ecu::koru::com::Delivery;
using ecu::koru::com::ISubscriptionObserver;
using ecu::koru::com::ITransportClient;
using ecu::koru::com::Message;
using Keys = std::map<std::string, std::string>;

inline Message text_message(const std::string& text, bool retained = false) {
  return {1, {text.begin(), text.end()}, true, retained};
}

inline std::shared_ptr<ITransportClient> make_client(uint16_t port, const Keys& keys = {}) {
  static const int library = mosqpp::lib_init();
  EXPECT_EQ(library, 0);
  auto config = std::make_unique<ecu::koru::config::Configuration>();
  config->set("port", std::to_string(port));
  for (const auto& [key, value] : keys) config->set(key, value);
  return create_client(config, ecu::koru::com::TransportType::MQTT);
}

/// A client that is connected to the broker.
inline std::shared_ptr<ITransportClient> make_connected(const test::Broker& broker, const Keys& keys = {}) {
  auto client = make_client(broker.port(), keys);
  EXPECT_TRUE(client->connect());
  EXPECT_TRUE(client->start());
  return client;
}

/// Writes down what it gets, then does what the test wants.
class Recorder final : public ISubscriptionObserver {
 public:
  using Action = std::function<void(const std::string& topic, const Message& message)>;
  explicit Recorder(Action action = {}) : m_action(std::move(action)) {}

  void message(const std::string& topic, const Message& message) override {
    {
      const std::lock_guard lock(m_mutex);
      m_texts.push_back(topic + "=" + std::string(message.payload.begin(), message.payload.end()));
      m_messages.push_back(message);
    }
    if (m_action) m_action(topic, message);
  }

  /// "topic=payload" of all so far.
  [[nodiscard]] std::vector<std::string> texts() const {
    const std::lock_guard lock(m_mutex);
    return m_texts;
  }
  [[nodiscard]] Message last() const {
    const std::lock_guard lock(m_mutex);
    return m_messages.back();
  }
  [[nodiscard]] bool got(const std::string& text, int timeout_ms = 5000) const {
    return test::eventually([&] { return testing::Value(texts(), testing::Contains(text)); }, timeout_ms);
  }

 private:
  Action m_action;
  mutable std::mutex m_mutex;
  std::vector<std::string> m_texts;
  std::vector<Message> m_messages;
};

/// Captures the log (standard error) while it lives.
class LogCapture {
 public:
  /// Ends the capture.
  const std::string& text() { return m_text += m_capture.take(); }
  /// How many records of the transport have this level and hold `part`.
  int count(const std::string& level, const std::string& part = "") {
    std::istringstream lines(text());
    int result = 0;
    for (std::string line; std::getline(lines, line);) {
      result += line.find(" " + level + " koru.com.mqtt:") != std::string::npos &&
                line.find(part) != std::string::npos;
    }
    return result;
  }

 private:
  test::LogCapture m_capture{"INFO"};
  std::string m_text;
};

}  // namespace transport_test
