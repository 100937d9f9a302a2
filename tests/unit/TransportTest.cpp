#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <mosquittopp.h>
#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <functional>
#include <list>
#include <mutex>
#include <thread>

#include "platform/base/Logging.h"
#include "platform/base/Time.h"
#include "platform/com/MqttConnection.h"
#include "platform/com/MqttCopies.h"
#include "platform/com/MqttOutbox.h"
#include "platform/com/MqttSubscriptions.h"
#include "platform/com/Transport.h"
#include "support/Broker.h"
#include "support/LogCapture.h"
#include "support/VirtualClock.h"

constexpr const char* BOTH_FAMILIES = "both.test";

/// Replaces the name look-up: one name stands for this machine by IPv4 and by IPv6.
int getaddrinfo(const char* name, const char* service, const addrinfo* hints, addrinfo** result) {
  static auto* const real = reinterpret_cast<decltype(&getaddrinfo)>(dlsym(RTLD_NEXT, "getaddrinfo"));
  if (name == nullptr || name != std::string(BOTH_FAMILIES)) return real(name, service, hints, result);
  const int error = real("127.0.0.1", service, hints, result);
  if (error != 0) return error;
  addrinfo* last = *result;
  while (last->ai_next != nullptr) last = last->ai_next;
  return real("::1", service, hints, &last->ai_next);
}

namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;
using namespace ecu::koru;
using namespace ecu::koru::com;
using testing::ElementsAre;
using testing::HasSubstr;
using Keys = std::map<std::string, std::string>;
using Counts = std::map<std::string, int>;

Message text_message(const std::string& text, bool retained = false) {
  return {1, {text.begin(), text.end()}, true, retained};
}

std::shared_ptr<ITransportClient> make_client(uint16_t port, const Keys& keys = {}) {
  static const int library = mosqpp::lib_init();
  EXPECT_EQ(library, 0);
  auto config = std::make_unique<config::Configuration>();
  config->set("port", logging::text("0x", logging::hex(port)));
  for (const auto& [key, value] : keys) config->set(key, value);
  return create_client(config, TransportType::MQTT);
}

class Recorder final : public ISubscriptionObserver {
 public:
  using Action = std::function<void(const std::string& topic, const Message& message)>;
  explicit Recorder(Action action = {}) : m_action(std::move(action)) {}

  void message(const std::string& topic, const Message& message) override {
    {
      const std::lock_guard lock(m_mutex);
      m_texts.push_back(topic + "=" + std::string(message.payload.begin(), message.payload.end()));
      m_last = message;
    }
    if (m_action) m_action(topic, message);
  }

  /// Returns "topic=payload" of all messages so far.
  [[nodiscard]] std::vector<std::string> texts() const {
    const std::lock_guard lock(m_mutex);
    return m_texts;
  }
  /// Returns the last message. Call it only after no more arrive.
  [[nodiscard]] const Message& last() const { return m_last; }
  [[nodiscard]] bool got(const std::string& text, int timeout_ms = 5000) const {
    return test::eventually([&] { return testing::Value(texts(), testing::Contains(text)); }, timeout_ms);
  }

 private:
  Action m_action;
  mutable std::mutex m_mutex;
  std::vector<std::string> m_texts;
  Message m_last;
};

/// Gives each caller the same answer, then closes the connection.
class Peer : test::Unique {
 public:
  explicit Peer(std::string answer) : m_answer(std::move(answer)), m_thread([this] { serve(); }) {}
  ~Peer() {
    shutdown(m_listener, SHUT_RDWR);
    m_thread.join();
    close(m_listener);
  }

  const uint16_t port = test::free_port();

 private:
  void serve() const {
    for (int caller; (caller = accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC)) >= 0; close(caller)) {
      std::array<char, 100> bytes{};
      recv(caller, bytes.data(), bytes.size(), 0);
      // MQTT 3.1.1, a clean session, a keep-alive of 30 s
      EXPECT_EQ(std::string(bytes.data() + 2, 10), "\0\x04MQTT\x04\x02\0\x1E"s);
      send(caller, m_answer.data(), m_answer.size(), MSG_NOSIGNAL);
    }
  }

  const int m_listener = test::listen_on(port);
  const std::string m_answer;
  std::thread m_thread;
};

/// Returns how many transport records have this level and begin with `part`.
size_t records(const std::string& log, const std::string& level, const std::string& part = "") {
  return test::occurrences(log, " " + level + " koru.com.mqtt: " + part);
}

class Transport : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(broker.start());
    client = make_client(broker.port());
    ASSERT_TRUE(client->connect());
    ASSERT_TRUE(client->start());
  }

  test::Broker broker;
  std::shared_ptr<ITransportClient> client;
};

TEST_F(Transport, DeliversEveryMessageOnceToEverySubscription) {
  // Some brokers send one copy for each of the client's topics that match.
  for (const char* copies : {"false", "true"}) {
    broker.stop();
    ASSERT_TRUE(test::eventually([&] { return !client->is_connected(); }, 5000));
    broker.configure({std::string("allow_duplicate_messages ") + copies});
    ASSERT_TRUE(broker.start());
    ASSERT_TRUE(test::eventually([&] { return client->is_connected(); }, 10'000));
    EXPECT_EQ(client->publish("a/old", text_message("kept", true)), 0);

    const auto one = std::make_shared<Recorder>();
    const auto all = std::make_shared<Recorder>();
    for (int i = 0; i < 2; ++i) EXPECT_TRUE(client->subscribe("a/b", one, 0));
    EXPECT_TRUE(client->subscribe("a/b", all, 0));
    EXPECT_TRUE(client->subscribe("a/+", all, 0));
    EXPECT_TRUE(client->subscribe("a/#", all, 0));
    EXPECT_TRUE(client->subscribe("end", one, 0));
    const uint64_t before = DateTime::time_since_boot_ns();
    EXPECT_EQ(client->publish("a/b", text_message("1")), 0);
    ASSERT_TRUE(one->got("a/b=1"));
    std::this_thread::sleep_for(1500ms);  // after that time the next one is not a copy
    for (const char* text : {"1", "2", "2"}) EXPECT_EQ(client->publish("a/b", text_message(text)), 0);
    EXPECT_EQ(client->publish("other", text_message("x")), 0);
    EXPECT_EQ(client->publish("end", text_message("")), 0);
    ASSERT_TRUE(one->got("end="));
    EXPECT_THAT(one->texts(), ElementsAre("a/b=1", "a/b=1", "a/b=2", "a/b=2", "end="));
    // The observer has three subscriptions. Each message comes once through each that matches its topic.
    for (const auto& [text, times] : Counts{{"a/old=kept", 2}, {"a/b=1", 6}, {"a/b=2", 6}})
      EXPECT_THAT(all->texts(), testing::Contains(text).Times(times));
    EXPECT_TRUE(one->last().valid);
    EXPECT_FALSE(one->last().retained);
    EXPECT_GE(one->last().timestamp_ns, before);
    EXPECT_LE(one->last().timestamp_ns, DateTime::time_since_boot_ns());
  }
}

TEST_F(Transport, UnsubscribesAndRefusesWhatIsInvalid) {
  const auto observer = std::make_shared<Recorder>();
  EXPECT_TRUE(client->subscribe("a", observer, 0));
  EXPECT_TRUE(client->subscribe("end", observer, 0));
  EXPECT_TRUE(client->unsubscribe("a"));
  EXPECT_FALSE(client->unsubscribe("a"));
  EXPECT_FALSE(client->unsubscribe("never"));
  for (const char* topic : {"", "a/#/b", "a+", "\xff"}) {
    EXPECT_FALSE(client->subscribe(topic, observer, 0)) << topic;
    EXPECT_LT(client->publish(topic, text_message("x")), 0) << topic;
    EXPECT_LT(client->publish(topic, text_message("x"), Delivery::until_sent), 0) << topic;
  }
  EXPECT_FALSE(client->subscribe("x", nullptr, 0));
  EXPECT_FALSE(client->subscribe("x", observer, 1));
  EXPECT_EQ(client->publish("a", text_message("x")), 0);
  EXPECT_EQ(client->publish("end", text_message("x")), 0);
  ASSERT_TRUE(observer->got("end=x"));
  EXPECT_THAT(observer->texts(), ElementsAre("end=x"));
  // The service ends like this: many requests at once, then the stop. The broker must get them all.
  for (int i = 0; i < 20; ++i) client->unsubscribe("end" + std::to_string(i));
  EXPECT_TRUE(client->stop());
  EXPECT_LT(client->publish("a", text_message("x")), 0);
  const std::string request = "Received UNSUBSCRIBE from satnavd";
  EXPECT_TRUE(test::eventually([&] { return test::occurrences(broker.log(), request) == 3 + 20; }, 5000));
  EXPECT_TRUE(test::eventually(
      [&] { return test::occurrences(broker.log(), "Received DISCONNECT from satnavd") == 1; }, 5000));
}

TEST_F(Transport, ComesBackWithItsSubscriptionsAndWithWhatWasKept) {
  EXPECT_TRUE(client->stop());
  broker.stop();
  test::LogCapture capture("INFO");
  client = make_client(broker.port(), {{"connect_timeout_ms", "50"}});
  const auto observer = std::make_shared<Recorder>();
  EXPECT_TRUE(client->subscribe("#", observer, 0));
  EXPECT_TRUE(client->connect());
  EXPECT_FALSE(client->start());
  for (const char* round : {"1", "2"}) {
    EXPECT_LT(client->publish("fix", text_message("lost")), 0);
    EXPECT_LT(client->publish("source", text_message("older"), Delivery::until_sent), 0);
    EXPECT_LT(client->publish("source", text_message(round), Delivery::until_sent), 0);
    ASSERT_TRUE(broker.start());
    EXPECT_TRUE(observer->got(std::string("source=") + round)) << round;
    EXPECT_TRUE(client->is_connected());
    EXPECT_EQ(client->publish("fix", text_message(round)), 0);
    EXPECT_TRUE(observer->got(std::string("fix=") + round)) << round;
    broker.stop();
    EXPECT_TRUE(test::eventually([&] { return !client->is_connected(); }, 2000));
  }
  EXPECT_THAT(observer->texts(), ElementsAre("source=1", "fix=1", "source=2", "fix=2"));
  EXPECT_TRUE(client->stop());
  const std::string log = capture.take();
  EXPECT_EQ(records(log, "WARNING", "No connection to 127.0.0.1:"), 1U) << log;
  EXPECT_EQ(records(log, "WARNING", "Connection lost"), 2U);
  EXPECT_EQ(records(log, "NOTICE", "Connected "), 2U);
}

TEST(TransportPeers, AreToldApart) {
  const std::pair<std::string, std::string> rows[] = {
      {"SSH-2.0-x\r\n", "the answer to the login is not MQTT, it begins with \"SSH-2.0-x.x0D.x0A\"\n"},
      {"", "ERROR koru.com.mqtt: The login is not answered, 127.0.0.1:"},
      {"\x20\x02\0\0\x30\x10\x00"s,
       "WARNING koru.com.mqtt: Connection lost to 127.0.0.1:[^\n]* middle of a packet"},
  };
  const std::string too_long(257, 'x');
  test::LogCapture capture("INFO");
  std::list<Peer> peers;
  std::vector<std::shared_ptr<ITransportClient>> clients;
  for (const auto& [answer, record] : rows) {
    const Peer& peer = peers.emplace_back(answer);
    clients.push_back(make_client(peer.port, {{"connect_timeout_ms", "1"}, {"client_name", too_long}}));
    EXPECT_TRUE(clients.back()->connect());
    clients.back()->start();
  }
  std::this_thread::sleep_for(2s);  // each client tries twice
  for (const auto& client : clients) client->stop();
  const std::string log = capture.take();
  for (const auto& [answer, record] : rows) EXPECT_THAT(log, testing::ContainsRegex(record));
  EXPECT_EQ(records(log, "ERROR", "There is no MQTT broker, 127.0.0.1:"), 1U) << log;
  const size_t refused =
      records(log, "ERROR", "Configuration: client_name = \"" + std::string(200, 'x') + "...\"");
  EXPECT_EQ(refused, peers.size());
  EXPECT_EQ(records(log, "ERROR"), refused + 2);
}

TEST(TransportSubscriptions, EachObserverGetsARetainedMessageOnceUntilItChanges) {
  const std::array observers{std::make_shared<Recorder>(), std::make_shared<Recorder>()};
  MqttSubscriptions subscriptions;
  EXPECT_TRUE(subscriptions.add("t", observers[0]));
  EXPECT_TRUE(subscriptions.add("+", observers[1]));
  for (const char text : {'a', 'a', 'b', 'b'}) subscriptions.dispatch("t", text_message({text}, true));
  for (int copy = 0; copy < 2; ++copy) subscriptions.dispatch("t", text_message("c"));  // a change
  for (const char text : {'c', 'b', 'b'}) subscriptions.dispatch("t", text_message({text}, true));
  subscriptions.forget_retained();
  subscriptions.dispatch("t", text_message("b", true));
  for (const auto& observer : observers)
    EXPECT_THAT(observer->texts(), ElementsAre("t=a", "t=b", "t=c", "t=b", "t=b"));
}

TEST(TransportCopies, AreToldFromNewMessages) {
  // Time in ms (-1: the subscriptions change), hash, retained, number of matching topics, is a copy.
  using Steps = std::vector<std::tuple<int, size_t, bool, size_t, bool>>;
  constexpr bool RETAINED = true, COPY = true;
  const std::pair<const char*, Steps> rows[] = {
      {"one topic", {{0, 1, {}, 1, {}}, {0, 1, {}, 1, {}}, {1, 2, {}, 0, {}}, {1, 2, {}, 0, {}}}},
      {"copies", {{0, 1, {}, 3, {}}, {1, 1, {}, 3, COPY}, {2, 1, {}, 3, COPY}, {3, 1, {}, 3, {}}}},
      {"in time", {{0, 1, {}, 2, {}}, {999, 1, {}, 2, COPY}, {1998, 1, {}, 2, {}}, {2997, 1, {}, 2, COPY}}},
      {"late", {{0, 1, {}, 2, {}}, {1000, 1, {}, 2, {}}, {1001, 1, {}, 2, {}}}},
      {"none",
       {{0, 1, {}, 2, {}}, {1, 2, {}, 2, {}}, {2, 2, {}, 2, {}}, {-1, {}, {}, {}, {}}, {3, 2, {}, 2, COPY}}},
      {"retained", {{0, 1, {}, 2, {}}, {1, 1, RETAINED, 2, {}}, {2, 1, {}, 2, COPY}, {3, 1, {}, 2, {}}}},
  };
  for (const auto& [name, steps] : rows) {
    MqttCopies copies;
    for (const auto& [at_ms, hash, retained, topics, copy] : steps) {
      const auto now = 1h + at_ms * 1ms;
      if (at_ms < 0) {
        copies.learn_anew();
      } else {
        EXPECT_EQ(copies.is_copy(hash, retained, topics, now), copy) << name << ", " << at_ms << " ms";
        copies.delivered(now);
      }
    }
  }
}

TEST(TransportPeers, AreFoundByEitherFamilyOfTheirNamesAddresses) {
  const uint16_t port_of_ipv6 = test::free_port();
  test::Broker broker({"listener " + std::to_string(port_of_ipv6) + " ::1", "allow_anonymous true"});
  if (!broker.start()) GTEST_SKIP() << "this machine has no IPv6";
  for (const uint16_t port : {broker.port(), port_of_ipv6}) {
    const auto client = make_client(port, {{"host", BOTH_FAMILIES}, {"connect_timeout_ms", "3000"}});
    EXPECT_TRUE(client->connect());
    EXPECT_TRUE(client->start()) << broker.log();
  }
}

TEST(TransportFailures, AreToldApart) {
  using Kind = MqttFailure::Kind;
  const std::string cut = "the connection was closed in the middle of a packet", eof = "unexpected eof";
  const std::tuple<MqttCourse, Kind, std::string> rows[] = {
      {{MOSQ_ERR_ERRNO, ECONNREFUSED}, Kind::unreachable, "Connection refused"},
      {{MOSQ_ERR_EAI, EAI_NONAME}, Kind::unreachable, "Name or service not known"},
      {{MOSQ_ERR_KEEPALIVE, 0, 0}, Kind::unreachable, "the broker no longer answers"},
      {{MOSQ_ERR_NO_CONN, 0, 0}, Kind::unreachable, "the connection was closed"},
      {{MOSQ_ERR_ERRNO, 0}, Kind::unreachable, cut},
      {{MOSQ_ERR_ERRNO, EPROTO, 0, 0, true}, Kind::unreachable, cut},
      {{MOSQ_ERR_ERRNO, EPROTO, -1, 0, true}, Kind::unanswered, unanswered(true).reason},
      {{MOSQ_ERR_ERRNO, EPROTO, -1, 0, true, true}, Kind::foreign, foreign("").reason},
      {{MOSQ_ERR_PROTOCOL, 0}, Kind::foreign, foreign("").reason},
      {{MOSQ_ERR_CONN_LOST, 0}, Kind::unanswered, unanswered(false).reason},
      {{MOSQ_ERR_ERRNO, EPROTO, -1, 0, true, false, eof}, Kind::unanswered, unanswered(true).reason},
      {{MOSQ_ERR_ERRNO, EPROTO, -1, 0, true, true, eof}, Kind::foreign, foreign("").reason},
      {{MOSQ_ERR_ERRNO, EPROTO, 0, 0, true, true, eof}, Kind::unreachable, "The connection was lost"},
      {{MOSQ_ERR_CONN_REFUSED, 0, 5}, Kind::refused, "Connection Refused: not authorised"},
      {{MOSQ_ERR_TLS, 0, -1, 0, true, false, "bad", "expired"}, Kind::tls, "bad (expired)"},
      {{MOSQ_ERR_NO_CONN, 0, -1, MOSQ_ERR_TLS, true}, Kind::tls, "A TLS error occurred"},
      {{MOSQ_ERR_NOMEM, 0, 0}, Kind::protocol, "Out of memory"},
  };
  for (const auto& [course, kind, reason] : rows) {
    EXPECT_EQ(explain(course).kind, kind) << reason;
    EXPECT_EQ(explain(course).reason, reason);
  }
  EXPECT_THAT(foreign("\x15\x03").reason, HasSubstr("is a TLS alert; its port expects TLS"));
  EXPECT_EQ(uninvited_packet("Client me received PUBLISH (d1, q1, r0, m1, 't', ...", "me"), message_with(1));
  for (const std::string packet : {"PUBACK", "PUBREC", "PUBREL", "PUBCOMP"})
    EXPECT_EQ(uninvited_packet("Client me received " + packet + " (Mid: 1)", "me"), packet);
  for (const std::string packet :
       {"me received PUBLISH (d0, q0", "me received PINGRESP", "you received PUBACK"})
    EXPECT_EQ(uninvited_packet("Client " + packet, "me"), "") << packet;
  EXPECT_FALSE(no_answer(false, 10s - 1ns, 8));
  EXPECT_EQ(no_answer(false, 10s, 8)->kind, Kind::unreachable);
  EXPECT_EQ(no_answer(false, 0s, 9)->kind, Kind::unanswered);
}

/// Each connection holds for the next of the given times; an attempt fails if that is 0. After the last one
/// it calls `end`. Every second all messages are written and a retained one comes twice.
class FakeLink final : public IMqttLink {
 public:
  explicit FakeLink(std::vector<std::chrono::milliseconds> holds) : m_holds(std::move(holds)) {}
  bool prepare() override { return true; }
  Failure establish(const std::function<bool()>& /*stopping*/) override {
    const size_t attempt = m_attempts++;
    note("attempt");
    if (attempt == m_holds.size()) end();
    if (attempt >= m_holds.size() || m_holds[attempt] == 0ms) return LOST;
    m_lost_at = steady_now() + m_holds[attempt];
    return {};
  }
  void wait(std::chrono::milliseconds timeout) override {
    const auto left = m_lost_at - steady_now();
    time_source().sleep_ns(std::min<std::chrono::nanoseconds>({timeout, 1s, left}).count());
  }
  void wake() override {}
  Failure work() override {
    m_written = m_mid;
    m_notes = {{}, std::vector(2, std::pair("t"s, text_message("kept", true)))};
    return m_lost_at <= steady_now() ? LOST : Failure();
  }
  int take_written() override { return std::exchange(m_written, 0); }
  Notes take_notes() override { return std::exchange(m_notes, {}); }
  void clean_up() override {}
  bool unwritten() override { return true; }
  int publish(const std::string& topic, const Message& /*message*/, int& mid) override {
    mid = note("publish " + topic);
    return MOSQ_ERR_SUCCESS;
  }
  void cork(bool on) override { note(on ? "cork" : "uncork"); }
  int subscribe(const std::string& topic) override { return note("subscribe " + topic); }
  int unsubscribe(const std::string& /*topic*/) override { return 0; }
  void disconnect() override {}

  [[nodiscard]] size_t attempts() const { return m_attempts; }
  std::function<void()> end = [] {};
  std::vector<std::string> log;  // time in ms and request

 private:
  const Failure LOST = MqttFailure{MqttFailure::Kind::unreachable, "lost"};
  int note(const std::string& what) {
    log.push_back(logging::text(steady_now() / 1ms, " ", what));
    return ++m_mid;
  }

  const std::vector<std::chrono::milliseconds> m_holds;
  std::atomic<size_t> m_attempts = 0;
  std::chrono::nanoseconds m_lost_at{};
  Notes m_notes;
  int m_mid = 0;
  int m_written = 0;
};

/// Runs the connection in virtual time until its link's holds are used up. Returns what the link was asked
/// for.
std::vector<std::string> log_of(std::vector<std::chrono::milliseconds> holds,
                                const std::function<void(MqttConnection&)>& prepare) {
  const test::VirtualClock clock(0);
  auto owned = std::make_unique<FakeLink>(std::move(holds));
  FakeLink& link = *owned;
  MqttConnection connection({}, std::move(owned));
  link.end = [&] { connection.request_stop(); };
  prepare(connection);
  connection.run();
  return link.log;
}

TEST(TransportConnection, IsTriedAgainAfter1SecondDoublingTo30) {
  const auto attempts = [](std::vector<std::chrono::milliseconds> holds, const std::vector<int>& times_ms) {
    std::vector<std::string> expected;
    expected.reserve(times_ms.size());
    for (const int time_ms : times_ms) expected.push_back(std::to_string(time_ms) + " attempt");
    EXPECT_EQ(log_of(std::move(holds), [](auto&) {}), expected);
  };
  attempts({0s, 0s, 0s, 0s, 0s, 0s, 0s}, {0, 1000, 3000, 7000, 15000, 31000, 61000, 91000});
  attempts({0s, 0s, 9999ms, 0s}, {0, 1000, 3000, 16999, 24999});
  attempts({0s, 0s, 10s, 0s}, {0, 1000, 3000, 14000, 16000});  // starts again after a good connection
}

TEST(TransportConnection, BringsSubscriptionsAndRetainedMessagesAnew) {
  std::vector<int> codes;
  std::shared_ptr<Recorder> observer;
  const auto log = log_of({1500ms, 1s}, [&](MqttConnection& connection) {
    observer = std::make_shared<Recorder>([&](const auto&, const auto& message) {
      for (const auto pause : {0ms, 50ms, 1ms}) {  // older messages hold the last one up
        time_source().sleep_ns(std::chrono::nanoseconds(pause).count());
        codes.push_back(connection.publish("fix", message, Delivery::once));
      }
    });
    EXPECT_TRUE(connection.subscribe("t", observer, 0));
    EXPECT_LT(connection.publish("fix", text_message("lost"), Delivery::once), 0);
    EXPECT_LT(connection.publish("source", text_message("kept"), Delivery::until_sent), 0);
  });
  EXPECT_THAT(log, ElementsAre("0 attempt", "0 subscribe t", "0 publish source", "1000 publish fix",
                               "1050 publish fix", "2500 attempt", "2500 subscribe t", "3500 publish fix",
                               "3550 publish fix", "5551 attempt"));
  EXPECT_THAT(codes, ElementsAre(0, 0, -MOSQ_ERR_NO_CONN, 0, 0, -MOSQ_ERR_NO_CONN));
  EXPECT_THAT(observer->texts(), ElementsAre("t=kept", "t=kept"));
}

TEST(TransportConnection, CollectsTheMessagesOfABurst) {
  std::shared_ptr<Recorder> observer;
  const auto log = log_of({1s}, [&](MqttConnection& connection) {
    observer = std::make_shared<Recorder>([&](const auto&, const auto& message) {
      for (const size_t count : {0, 2}) {
        connection.begin_burst();
        for (size_t i = 0; i < count; ++i) connection.publish("fix", message, Delivery::once);
        connection.end_burst();
      }
      connection.publish("late", message, Delivery::once);
    });
    EXPECT_TRUE(connection.subscribe("t", observer, 0));
  });
  EXPECT_THAT(log, ElementsAre("0 attempt", "0 subscribe t", "1000 cork", "1000 publish fix",
                               "1000 publish fix", "1000 uncork", "1000 publish late", "2000 attempt"));
}

TEST(TransportConnection, AStopEndsThePauseAtOnce) {
  auto link = std::make_unique<FakeLink>(std::vector(2, 0ms));
  const FakeLink& attempted = *link;
  MqttConnection connection({}, std::move(link));
  std::thread thread([&] { connection.run(); });
  EXPECT_TRUE(test::eventually([&] { return attempted.attempts() == 1; }, 5000));
  std::this_thread::sleep_for(20ms);
  connection.request_stop();
  EXPECT_TRUE(connection.wait_until_ended(500ms));
  thread.join();
  EXPECT_EQ(attempted.attempts(), 1U);
}

TEST(TransportOutbox, AcceptsNothingBehindOldMessages) {
  MqttOutbox outbox;
  const MqttOutbox::Time start{};
  const auto accepts_until = [&](std::chrono::milliseconds last) {
    return outbox.accepts(start + last) && !outbox.accepts(start + last + 1ms);
  };
  EXPECT_TRUE(outbox.empty());
  for (int i = 0; i < 255; ++i) outbox.taken(i, start + i * 1ms);
  EXPECT_TRUE(accepts_until(50ms));
  outbox.written(99);
  EXPECT_TRUE(accepts_until(150ms));
  for (int i = 0; i < 101; ++i) outbox.taken(300 + i, start + 255ms);
  EXPECT_FALSE(outbox.accepts(start)) << "256 messages";
  outbox.written(400);
  EXPECT_TRUE(outbox.accepts(start + 1h));
}

TEST_F(Transport, DropsFixesWhileTheBrokerTakesNone) {
  const auto observer = std::make_shared<Recorder>();
  EXPECT_TRUE(client->subscribe("end", observer, 0));
  test::LogCapture capture("INFO");
  broker.freeze();
  const auto fix = text_message(std::string(200000, 'x'));
  EXPECT_TRUE(test::eventually([&] { return client->publish("fix", fix) < 0; }, 400));
  for (int i = 0; i < 20; ++i) {
    EXPECT_LT(client->publish("fix", text_message("x")), 0);
    std::this_thread::sleep_for(5ms);
  }
  EXPECT_TRUE(client->is_connected());
  broker.thaw();
  EXPECT_TRUE(test::eventually([&] { return client->publish("end", text_message("1")) == 0; }, 5000));
  EXPECT_TRUE(observer->got("end=1"));
  const std::string log = capture.take();
  EXPECT_EQ(records(log, "WARNING", "The broker takes no more messages"), 1U) << log;
  EXPECT_EQ(records(log, "NOTICE", "The broker takes messages again"), 1U) << log;
}

TEST_F(Transport, SendsAgainWhatWasNotWrittenWhenTheConnectionDied) {
  const auto observer = std::make_shared<Recorder>();
  EXPECT_TRUE(client->subscribe("source", observer, 0));
  broker.freeze();
  const std::string more_than_the_sockets_hold(1000000, 'x');
  EXPECT_EQ(client->publish("fix", text_message(more_than_the_sockets_hold)), 0);
  client->publish("source", text_message("1"), Delivery::until_sent);
  broker.kill();
  EXPECT_TRUE(test::eventually([&] { return !client->is_connected(); }, 5000));
  ASSERT_TRUE(broker.start());
  EXPECT_TRUE(observer->got("source=1"));
  EXPECT_EQ(client->publish("source", text_message("2"), Delivery::until_sent), 0);
  EXPECT_TRUE(observer->got("source=2"));
}

TEST_F(Transport, ObserversMayFailPublishUnsubscribeAndDie) {
  test::LogCapture capture("INFO");
  const auto thrower =
      std::make_shared<Recorder>([](const auto&, const auto&) { throw std::runtime_error("no\ngood"); });
  const auto odd = std::make_shared<Recorder>([](const auto&, const auto&) { throw 1; });
  const auto echo = std::make_shared<Recorder>([&](const auto&, const auto& message) {
    client->publish("echo", message);
    client->unsubscribe("in");
  });
  const auto result = std::make_shared<Recorder>();
  const auto late = std::make_shared<Recorder>();  // `echo` unsubscribes its topic before its turn
  auto dying = std::make_shared<Recorder>();
  for (const auto& observer : {thrower, odd, dying, echo, late})
    EXPECT_TRUE(client->subscribe("in", observer, 0));
  for (const char* topic : {"echo", "big"}) EXPECT_TRUE(client->subscribe(topic, result, 0));
  dying.reset();
  EXPECT_EQ(client->publish("in", text_message("1")), 0);
  EXPECT_TRUE(result->got("echo=1"));
  EXPECT_EQ(client->publish("in", text_message("2")), 0);
  constexpr size_t LIMIT = 1048576;
  for (const size_t size : {LIMIT + 1, LIMIT}) {
    const auto big =
        text_message(std::string(size, 'y'));  // takes long to send, so the second one has to wait
    EXPECT_TRUE(test::eventually([&] { return client->publish("big", big) == 0; }, 10000));
  }
  EXPECT_TRUE(result->got("big=" + std::string(LIMIT, 'y'), 10000));
  EXPECT_EQ(result->texts().size(), 2U);
  EXPECT_THAT(echo->texts(), ElementsAre("in=1"));
  EXPECT_THAT(late->texts(), testing::IsEmpty());
  const std::string log = capture.take();
  EXPECT_EQ(records(log, "ERROR", "The observer of \"in\" failed"), 2U) << log;
  EXPECT_THAT(log, HasSubstr("no\\x0Agood"));
  EXPECT_THAT(log, HasSubstr("1048577 bytes on \"big\""));
}

TEST_F(Transport, UnsubscribeWaitsForTheCallback) {
  std::atomic<bool> entered = false, left = false;
  const auto slow = std::make_shared<Recorder>([&](const auto&, const auto&) {
    entered = true;
    std::this_thread::sleep_for(200ms);
    left = true;
  });
  EXPECT_TRUE(client->subscribe("a", slow, 0));
  EXPECT_EQ(client->publish("a", text_message("")), 0);
  EXPECT_TRUE(test::eventually([&] { return entered.load(); }, 5000));
  EXPECT_FALSE(client->unsubscribe("b"));  // for another topic it does not wait
  EXPECT_FALSE(left);
  EXPECT_TRUE(client->unsubscribe("a"));
  EXPECT_TRUE(left);
}

}  // namespace
