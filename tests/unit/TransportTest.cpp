#include "unit/TransportTest.h"

#include <chrono>
#include <thread>

#include "platform/MqttOutbox.h"
#include "platform/PbInternalMessageAdapter.h"
#include "platform/Time.h"
#include "platform/Variables.h"

namespace transport_test {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(Transport, DeliversEveryMessageOnceToEverySubscription) {
  // Some brokers send one copy for each of the client's topics that match.
  for (const char* copies : {"false", "true"}) {
    test::Broker broker({std::string("allow_duplicate_messages ") + copies});
    ASSERT_TRUE(broker.start());
    const auto client = make_connected(broker);
    EXPECT_EQ(client->publish("a/old", text_message("kept", true)), 0);

    const auto one = std::make_shared<Recorder>();
    const auto all = std::make_shared<Recorder>();
    for (int i = 0; i < 2; ++i) EXPECT_TRUE(client->subscribe("a/b", one, 0));
    EXPECT_TRUE(client->subscribe("a/b", all, 0));
    EXPECT_TRUE(client->subscribe("a/+", all, 0));
    EXPECT_TRUE(client->subscribe("a/#", all, 0));
    EXPECT_TRUE(client->subscribe("end", one, 0));
    const uint64_t before = ecu::koru::DateTime::time_since_boot_ns();
    for (const char* text : {"1", "2", "2"}) {
      EXPECT_EQ(client->publish("a/b", text_message(text)), 0);
    }
    EXPECT_EQ(client->publish("other", text_message("x")), 0);
    EXPECT_EQ(client->publish("end", text_message("")), 0);
    ASSERT_TRUE(one->got("end="));
    EXPECT_THAT(one->texts(), ElementsAre("a/b=1", "a/b=2", "a/b=2", "end="));
    // Three subscriptions of the same observer: each gets each message once, the retained one by two of them.
    EXPECT_THAT(all->texts(),
                testing::UnorderedElementsAre("a/old=kept", "a/old=kept", "a/b=1", "a/b=1", "a/b=1", "a/b=2",
                                              "a/b=2", "a/b=2", "a/b=2", "a/b=2", "a/b=2"));
    EXPECT_TRUE(one->last().valid);
    EXPECT_FALSE(one->last().retained);
    EXPECT_GE(one->last().timestamp_ns, before);
    EXPECT_LE(one->last().timestamp_ns, ecu::koru::DateTime::time_since_boot_ns());
  }
}

TEST(Transport, UnsubscribesAndRefusesWhatIsInvalid) {
  test::Broker broker;
  ASSERT_TRUE(broker.start());
  const auto client = make_connected(broker);
  const auto observer = std::make_shared<Recorder>();
  EXPECT_TRUE(client->subscribe("a", observer, 0));
  EXPECT_TRUE(client->subscribe("end", observer, 0));
  EXPECT_TRUE(client->unsubscribe("a"));
  EXPECT_FALSE(client->unsubscribe("a"));
  EXPECT_FALSE(client->unsubscribe("never"));
  for (const char* topic : {"", "a/#/b", "a+", "\xff"})
    EXPECT_FALSE(client->subscribe(topic, observer, 0)) << topic;
  EXPECT_FALSE(client->subscribe("x", nullptr, 0));
  for (const char* topic : {"", "a/#", "+", "\xff"}) {
    EXPECT_LT(client->publish(topic, text_message("x")), 0) << topic;
    EXPECT_LT(client->publish(topic, text_message("x"), Delivery::until_sent), 0) << topic;
  }
  EXPECT_EQ(client->publish("a", text_message("x")), 0);
  EXPECT_EQ(client->publish("end", text_message("x")), 0);
  ASSERT_TRUE(observer->got("end=x"));
  EXPECT_THAT(observer->texts(), ElementsAre("end=x"));
  // The end of the service: many at once, then good-bye. The broker must get them all.
  for (int i = 0; i < 20; ++i) client->unsubscribe("end" + std::to_string(i));
  EXPECT_TRUE(client->stop());
  EXPECT_LT(client->publish("a", text_message("x")), 0);
  const std::string request = "Received UNSUBSCRIBE from satnavd";
  EXPECT_TRUE(test::eventually(
      [&] {
        const std::string log = broker.log();
        int count = 0;
        for (size_t at = 0; (at = log.find(request, at)) != std::string::npos; ++at) ++count;
        return count == 3 + 20;
      },
      5000));
  for (const char* line : {"Received UNSUBSCRIBE from satnavd", "Received DISCONNECT from satnavd"}) {
    EXPECT_TRUE(test::eventually([&] { return broker.log().find(line) != std::string::npos; }, 5000)) << line;
  }
}

TEST(Transport, ComesBackWithItsSubscriptionsAndWithWhatWasKept) {
  LogCapture log;
  test::Broker broker;
  const auto client = make_client(broker.port(), {{"connect_timeout_ms", "50"}});
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
  EXPECT_EQ(log.count("WARNING", "No connection to 127.0.0.1:"), 1) << log.text();
  EXPECT_EQ(log.count("NOTICE", "Connected to"), 1);
  EXPECT_EQ(log.count("WARNING", "Connection lost"), 2);
  EXPECT_EQ(log.count("NOTICE", "Connected again"), 1);
  EXPECT_EQ(log.count(""), 0);
}

TEST(Transport, DropsFixesWhileTheBrokerTakesNone) {
  test::Broker broker;
  ASSERT_TRUE(broker.start());
  LogCapture log;
  const auto client = make_connected(broker);
  const auto observer = std::make_shared<Recorder>();
  EXPECT_TRUE(client->subscribe("end", observer, 0));
  broker.freeze();
  const auto fix = text_message(std::string(200000, 'x'));
  EXPECT_TRUE(test::eventually([&] { return client->publish("fix", fix) < 0; }, 400));
  for (int i = 0; i < 20; ++i) {
    EXPECT_LT(client->publish("fix", text_message("x")), 0);
    std::this_thread::sleep_for(5ms);
  }
  EXPECT_TRUE(client->is_connected());
  EXPECT_LT(client->publish("end", text_message("kept"), Delivery::until_sent), 0);
  broker.thaw();
  EXPECT_TRUE(observer->got("end=kept"));
  EXPECT_EQ(client->publish("end", text_message("1")), 0);
  EXPECT_TRUE(observer->got("end=1"));
  EXPECT_TRUE(client->stop());
  EXPECT_EQ(log.count("WARNING", "dropped"), 1) << log.text();
  EXPECT_EQ(log.count("NOTICE", "again"), 1);
}

TEST(Transport, SendsAgainWhatWasNotWrittenWhenTheConnectionDied) {
  test::Broker broker;
  ASSERT_TRUE(broker.start());
  const auto client = make_connected(broker);
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

TEST(MqttOutbox, TellsBurstsFromBacklog) {
  using ecu::koru::com::MqttOutbox;
  MqttOutbox box;
  const MqttOutbox::Time start{};
  for (int mid = 1; mid <= 7; ++mid) box.taken(mid, start);
  EXPECT_TRUE(box.accepts(start + 51ms));  // nobody tried the socket yet
  EXPECT_FALSE(box.accepts(start + 1001ms));
  box.set_blocked(true);
  EXPECT_TRUE(box.accepts(start + 50ms));
  EXPECT_FALSE(box.accepts(start + 51ms));
  box.written(7);
  EXPECT_TRUE(box.empty() && box.accepts(start + 51ms));
  for (size_t i = 0; i < MqttOutbox::CAPACITY; ++i) box.taken(8, start);
  EXPECT_FALSE(box.accepts(start));
}

TEST(Transport, ObserversMayFailPublishUnsubscribeAndDie) {
  test::Broker broker;
  ASSERT_TRUE(broker.start());
  const auto client = make_connected(broker);
  LogCapture log;
  const auto thrower =
      std::make_shared<Recorder>([](const auto&, const auto&) { throw std::runtime_error("no\ngood"); });
  const auto odd = std::make_shared<Recorder>([](const auto&, const auto&) { throw 1; });
  const auto echo = std::make_shared<Recorder>([&](const auto&, const auto& message) {
    client->publish("echo", message);
    client->unsubscribe("in");
  });
  const auto result = std::make_shared<Recorder>();
  const auto late = std::make_shared<Recorder>();  // its turn comes when its topic is unsubscribed
  auto dying = std::make_shared<Recorder>();
  for (const auto& observer : {thrower, odd, dying, echo, late})
    EXPECT_TRUE(client->subscribe("in", observer, 0));
  EXPECT_TRUE(client->subscribe("echo", result, 0));
  EXPECT_TRUE(client->subscribe("big", result, 0));
  dying.reset();
  EXPECT_EQ(client->publish("in", text_message("1")), 0);
  EXPECT_TRUE(result->got("echo=1"));
  EXPECT_EQ(client->publish("in", text_message("2")), 0);
  constexpr size_t LIMIT = 1048576;
  for (const size_t size : {LIMIT + 1, LIMIT}) {
    const auto big = text_message(std::string(size, 'y'));  // is long under way: the second one has to wait
    EXPECT_TRUE(test::eventually([&] { return client->publish("big", big) == 0; }, 10000));
  }
  EXPECT_TRUE(result->got("big=" + std::string(LIMIT, 'y'), 10000));
  EXPECT_EQ(result->texts().size(), 2U);
  EXPECT_THAT(echo->texts(), ElementsAre("in=1"));
  EXPECT_THAT(late->texts(), IsEmpty());
  EXPECT_EQ(log.count("ERROR", "The observer of \"in\" failed"), 2) << log.text();
  EXPECT_EQ(log.count("ERROR", "no\\x0Agood"), 1);
  EXPECT_EQ(log.count("WARNING", "1048577 bytes on \"big\""), 1);
}

TEST(Transport, UnsubscribeWaitsForTheCallback) {
  test::Broker broker;
  ASSERT_TRUE(broker.start());
  const auto client = make_connected(broker);
  std::atomic<bool> entered = false;
  std::atomic<bool> left = false;
  const auto slow = std::make_shared<Recorder>([&](const auto&, const auto&) {
    entered = true;
    std::this_thread::sleep_for(200ms);
    left = true;
  });
  EXPECT_TRUE(client->subscribe("a", slow, 0));
  EXPECT_EQ(client->publish("a", text_message("")), 0);
  EXPECT_TRUE(test::eventually([&] { return entered.load(); }, 5000));
  EXPECT_FALSE(client->unsubscribe("b"));  // another topic does not wait
  EXPECT_FALSE(left);
  EXPECT_TRUE(client->unsubscribe("a"));
  EXPECT_TRUE(left);
}

std::string enveloped(const google::protobuf::MessageLite& body) {
  Message message;
  EXPECT_TRUE(ecu::koru::com::envelope::wrap(1, body, message));
  return {message.payload.begin(), message.payload.end()};
}

TEST(Variables, AreReadFromTheirRetainedMessages) {
  test::Broker broker;
  ASSERT_TRUE(broker.start());
  const auto unit = make_connected(broker, {{"client_name", "unit"}, {"host", "localhost"}});
  ecu::koru::pb::RtSignal variable;
  variable.set_value("zpt");
  ecu::koru::pb::SystemParameters parameters;
  (*parameters.mutable_entries())[0xA00F].set_flags(1);
  const auto publish = [&](const std::string& topic, const std::string& payload) {
    EXPECT_EQ(unit->publish(topic, text_message(payload, true)), 0);
  };
  publish("system/var/good", enveloped(variable));
  publish("system/var/empty", enveloped(ecu::koru::pb::RtSignal()));
  publish("system/var/bad", "no envelope, but more than 18 bytes");
  publish("system/sysparams", enveloped(parameters));
  EXPECT_TRUE(unit->stop());

  const auto client = make_connected(broker, {{"var_timeout_ms", "600"}});
  const auto variables = ecu::koru::var::create_var_client(client);
  for (const auto& [name, value] : Keys{{"good", "zpt"}, {"empty", ""}, {"bad", ""}, {"absent", ""}}) {
    EXPECT_EQ(variables->get(name), value) << name;
  }
  const auto sysparams = ecu::koru::var::create_sysparams_client(client);
  EXPECT_EQ(sysparams->get_all().size(), 1U);
  ASSERT_TRUE(sysparams->get(0xA00F).has_value());
  EXPECT_EQ(sysparams->get(0xA00F)->flags(), 1U);
  EXPECT_FALSE(sysparams->get(1).has_value());
}

}  // namespace
}  // namespace transport_test
