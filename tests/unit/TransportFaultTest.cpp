#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "platform/MqttOptions.h"
#include "unit/TransportTest.h"

namespace transport_test {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

/// Listens on a port of its own and greets every connection with some bytes, then never reads or answers.
class Peer {
 public:
  explicit Peer(const std::string& greeting) : m_listener(socket(AF_INET, SOCK_STREAM, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    if (bind(m_listener, generic, size) != 0 || listen(m_listener, 8) != 0)
      throw std::runtime_error("listen");
    getsockname(m_listener, generic, &size);
    m_port = ntohs(address.sin_port);
    m_thread = std::thread([this, greeting] { accept_all(greeting); });
  }
  ~Peer() {
    m_ending = true;
    m_thread.join();
    close(m_listener);
  }
  [[nodiscard]] uint16_t port() const { return m_port; }
  [[nodiscard]] int connections() const { return m_connections; }

 private:
  void accept_all(const std::string& greeting) {
    std::vector<int> open;
    while (!m_ending) {
      pollfd watched{m_listener, POLLIN, 0};
      if (poll(&watched, 1, 20) != 1) continue;
      open.push_back(accept(m_listener, nullptr, nullptr));
      send(open.back(), greeting.data(), greeting.size(), MSG_NOSIGNAL);
      ++m_connections;
    }
    for (const int descriptor : open) close(descriptor);
  }

  int m_listener;
  uint16_t m_port = 0;
  std::atomic<bool> m_ending = false;
  std::atomic<int> m_connections = 0;
  std::thread m_thread;
};

TEST(TransportFaults, SenselessValuesAreNamedAndReplaced) {
  LogCapture log;
  ecu::koru::config::Configuration config;
  const Keys senseless = {{"port", "65536"},         {"connect_timeout_ms", "0"},
                          {"var_timeout_ms", "2 s"}, {"client_name", "a\xff\n"},
                          {"host", "\xc0"},          {"username", "\xfe"}};
  for (const auto& [key, value] : senseless) config.set(key, value);
  const auto options = ecu::koru::com::read_mqtt_options(config);
  EXPECT_EQ(options.port, 1883);
  EXPECT_EQ(options.connect_timeout, 10000ms);
  EXPECT_EQ(options.var_timeout, 2000ms);
  EXPECT_EQ(options.client_name, "satnavd");
  EXPECT_EQ(options.host, "127.0.0.1");
  EXPECT_EQ(options.username, "");
  for (const auto& [key, value] : senseless) EXPECT_EQ(log.count("ERROR", key + " = \""), 1) << log.text();
  EXPECT_EQ(log.count("ERROR", "\"a\\xFF\\x0A\""), 1);
}

TEST(TransportFaults, PeersThatAreNoBrokerAreLeftAndTriedAgain) {
  const struct {
    std::string greeting;
    std::string level;
    std::string expected;
  } rows[] = {{"", "WARNING", "does not answer"},
              {"\xF0\xFF\xFF\xFF\xFF\xFF", "ERROR", "broke the protocol"}};
  for (const auto& [greeting, level, expected] : rows) {
    LogCapture log;
    Peer peer(greeting);
    const auto client = make_client(peer.port(), {{"connect_timeout_ms", "50"}});
    EXPECT_TRUE(client->connect());
    client->start();
    EXPECT_TRUE(test::eventually([&] { return peer.connections() >= 2; }, 13000));
    EXPECT_FALSE(client->is_connected());
    const auto begin = Clock::now();
    EXPECT_TRUE(client->stop());
    EXPECT_LT(Clock::now() - begin, 1000ms);
    EXPECT_EQ(log.count(level, expected), 1) << log.text();
  }
}

TEST(TransportFaults, StopLeavesAnObserverBehindThatDoesNotReturn) {
  test::Broker broker;
  ASSERT_TRUE(broker.start());
  std::atomic<bool> entered = false;
  std::atomic<bool> left = false;
  const auto stuck = std::make_shared<Recorder>([&](const auto&, const auto&) {
    entered = true;
    std::this_thread::sleep_for(1500ms);
    left = true;
  });
  auto client = make_connected(broker);
  EXPECT_TRUE(client->subscribe("a", stuck, 0));
  EXPECT_EQ(client->publish("a", text_message("")), 0);
  EXPECT_TRUE(test::eventually([&] { return entered.load(); }, 5000));
  EXPECT_FALSE(client->stop());
  EXPECT_FALSE(left);
  client.reset();  // the thread goes on with what it shares
  EXPECT_TRUE(test::eventually([&] { return left.load(); }, 5000));
  std::this_thread::sleep_for(100ms);
}

}  // namespace
}  // namespace transport_test
