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

void run(const std::vector<std::string>& argv) {
  test::Process process(argv);
  ASSERT_EQ(process.wait_for_exit(20000), 0) << process.out() << process.err();
}

/// An authority NAME.pem and, signed by it, the certificate NAME-peer.pem with its key for 127.0.0.1.
void make_certificates(const test::TempDir& folder, const std::string& name) {
  const auto file = [&](const std::string& suffix) { return folder / (name + suffix); };
  const std::vector<std::string> key = {"-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes"};
  std::vector<std::string> authority = {"openssl",     "req",     "-x509",      "-days", "2",         "-subj",
                                        "/CN=" + name, "-keyout", file(".key"), "-out",  file(".pem")};
  authority.insert(authority.end(), key.begin(), key.end());
  run(authority);
  std::vector<std::string> peer = {"openssl",
                                   "req",
                                   "-x509",
                                   "-days",
                                   "2",
                                   "-subj",
                                   "/CN=peer",
                                   "-addext",
                                   "subjectAltName=IP:127.0.0.1",
                                   "-CA",
                                   file(".pem"),
                                   "-CAkey",
                                   file(".key"),
                                   "-keyout",
                                   file("-peer.key"),
                                   "-out",
                                   file("-peer.pem")};
  peer.insert(peer.end(), key.begin(), key.end());
  run(peer);
}

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

TEST(TransportFaults, UnusableFilesPreventTheConnection) {
  test::Broker broker;
  ASSERT_TRUE(broker.start());
  test::TempDir folder;
  const auto good = folder.write("good", "secret\n");
  const auto empty_line = folder.write("empty", "\r\nsecret\n");
  const struct {
    Keys keys;
    std::string expected;
  } rows[] = {
      {{{"username", "u"}, {"password_file", "/none"}}, "password_file, \"/none\""},
      {{{"username", "u"}, {"password_file", empty_line}}, "password_file \"" + empty_line},
      {{{"password_file", good}}, "needs username"},
      {{{"tls_ca", "/none"}}, "tls_ca, \"/none\""},
      {{{"tls_ca", folder.path().string()}}, "tls_ca, \""},
      {{{"tls_ca", good}, {"tls_cert", good}}, "needs tls_key"},
      {{{"tls_ca", good}, {"tls_cert", good}, {"tls_key", "/none"}}, "tls_key, \"/none\""},
      {{{"tls_cert", good}, {"tls_key", good}}, "needs tls_ca"},
  };
  for (const auto& [keys, expected] : rows) {
    LogCapture log;
    const auto client = make_client(broker.port(), keys);
    EXPECT_FALSE(client->connect()) << expected;
    EXPECT_FALSE(client->start()) << expected;
    EXPECT_EQ(client->read_timeout(), 0ms);
    EXPECT_TRUE(client->stop());
    EXPECT_EQ(log.count("ERROR", expected), 1) << log.text();
  }
  EXPECT_EQ(broker.log().find("as satnavd"), std::string::npos);
}

TEST(TransportFaults, LoginIsCheckedAndRefusalsAreToldOnce) {
  test::TempDir folder;
  const auto passwords = folder.write("passwords", "");
  run({"mosquitto_passwd", "-b", passwords, "user", "right"});
  test::Broker broker({"allow_anonymous false", "password_file " + passwords});
  ASSERT_TRUE(broker.start());
  const auto right = folder.write("right", "right\r\nsecond line\n");
  const auto wrong = folder.write("wrong", "wrong\n");
  make_connected(broker, {{"username", "user"}, {"password_file", right}});

  LogCapture log;
  const auto client = make_client(
      broker.port(), {{"username", "user"}, {"password_file", wrong}, {"connect_timeout_ms", "1500"}});
  EXPECT_TRUE(client->connect());
  EXPECT_FALSE(client->start());  // two tries
  EXPECT_TRUE(client->stop());
  EXPECT_EQ(log.count("ERROR", "refused the login"), 1) << log.text();
  EXPECT_EQ(log.count(""), 0);
  EXPECT_EQ(log.count("WARNING"), 0);
}

TEST(TransportFaults, TlsIsVerifiedAndNeverLeftOut) {
  test::TempDir folder;
  make_certificates(folder, "ours");
  make_certificates(folder, "other");
  test::Broker broker({"cafile " + (folder / "ours.pem"), "certfile " + (folder / "ours-peer.pem"),
                       "keyfile " + (folder / "ours-peer.key"), "require_certificate true"});
  ASSERT_TRUE(broker.start());
  const auto keys = [&](const std::string& authority, const std::string& own) {
    Keys result{{"tls_ca", folder / (authority + ".pem")}, {"connect_timeout_ms", "1500"}};
    if (!own.empty()) result["tls_cert"] = folder / (own + "-peer.pem");
    if (!own.empty()) result["tls_key"] = folder / (own + "-peer.key");
    return result;
  };
  {
    LogCapture log;
    const auto client = make_connected(broker, keys("ours", "ours"));
    const auto observer = std::make_shared<Recorder>();
    EXPECT_TRUE(client->subscribe("a", observer, 0));
    EXPECT_EQ(client->publish("a", text_message(std::string(100000, 'z'))), 0);
    EXPECT_TRUE(observer->got("a=" + std::string(100000, 'z')));
    broker.kill();
    EXPECT_TRUE(test::eventually([&] { return !client->is_connected(); }, 2000));
    std::this_thread::sleep_for(1500ms);  // a refused try
    ASSERT_TRUE(broker.start());
    EXPECT_TRUE(test::eventually([&] { return client->is_connected(); }, 5000));
    EXPECT_TRUE(client->stop());
    EXPECT_EQ(log.count("WARNING", "Connection lost"), 1) << log.text();
    EXPECT_EQ(log.count("WARNING"), 1);
    EXPECT_EQ(log.count("ERROR"), 0);
  }
  folder.write("garbage.pem", "no certificate");
  Peer plain("HTTP/1.1 400 Bad Request\r\n\r\n");
  const struct {
    uint16_t port;
    Keys keys;
  } rows[] = {{broker.port(), keys("other", "ours")},
              {broker.port(), keys("ours", "")},
              {broker.port(), keys("garbage", "")},
              {plain.port(), keys("ours", "")}};
  for (const auto& [port, row_keys] : rows) {
    LogCapture log;
    const auto client = make_client(port, row_keys);
    EXPECT_TRUE(client->connect());
    EXPECT_FALSE(client->start());
    EXPECT_TRUE(client->stop());
    EXPECT_EQ(log.count("ERROR", "TLS failed"), 1) << log.text();
    EXPECT_EQ(log.count(""), 0);
  }
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

TEST(TransportFaults, StopNeverWaitsForLong) {
  test::Broker broker;
  ASSERT_TRUE(broker.start());
  {  // a connected broker that no longer reads
    const auto client = make_connected(broker);
    broker.freeze();
    const auto fix = text_message(std::string(20000, 'x'));
    EXPECT_TRUE(test::eventually([&] { return client->publish("fix", fix) < 0; }, 20000));
    const auto begin = Clock::now();
    EXPECT_TRUE(client->stop());
    EXPECT_LT(Clock::now() - begin, 1100ms);
    broker.thaw();
  }
  {  // a start() that waits for a broker
    Peer silent("");
    const auto client = make_client(silent.port());
    EXPECT_TRUE(client->connect());
    std::thread stopper([&] {
      EXPECT_TRUE(test::eventually([&] { return silent.connections() > 0; }, 5000));
      EXPECT_TRUE(client->stop());
    });
    const auto begin = Clock::now();
    EXPECT_FALSE(client->start());
    EXPECT_LT(Clock::now() - begin, 3s);
    stopper.join();
  }
  {  // an observer that does not return in time
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
}

}  // namespace
}  // namespace transport_test
