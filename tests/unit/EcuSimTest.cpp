#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/Logging.h"
#include "platform/MemoryTransport.h"
#include "platform/PbInternalMessageAdapter.h"
#include "platform/Time.h"
#include "platform/Topics.h"
#include "sim/ecu/Bridge.h"
#include "sim/ecu/BridgeEnd.h"
#include "sim/ecu/LineBuffer.h"
#include "sim/ecu/UnitState.h"
#include "tools/tap/Lines.h"

using namespace ecu::koru;
using sim::parse_command;
using sim::UnitState;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

/// What a viewer of the bus would see: "topic [retained] fields".
std::vector<std::string> seen(const std::vector<sim::Publication>& publications) {
  std::vector<std::string> out;
  for (const auto& [topic, message] : publications) {
    const std::string line = tap::human_line({.topic = topic, .payload = message.payload}, false);
    const std::string fields = line.substr(line.find("] ") + 2, line.size() - line.find("] ") - 3);
    out.push_back(topic);
    out.back().append(message.retained ? " retained " : " ").append(fields);
  }
  return out;
}

std::vector<std::string> said(std::string_view line) {
  UnitState unit(false);
  return seen(unit.apply(parse_command(line)));
}

/// A VP1 group whose first byte is `first`, and what follows it.
com::Message frame(uint8_t first, std::vector<uint8_t> rest = {2, 3, 4, 5, 6, 7, 8}) {
  rest.insert(rest.begin(), first);
  pb::RtSignal body;
  body.set_value(rest.data(), rest.size());
  com::Message message;
  EXPECT_TRUE(com::envelope::wrap(9, body, message));
  return message;
}

class BridgeTest : public testing::Test {
 protected:
  BridgeTest() {
    set_time_source(&time);
    logging::configure_logging("ERROR");
  }
  ~BridgeTest() override {
    set_time_source(nullptr);
    logging::configure_logging("INFO");
  }

  /// The first bytes of the frames that came out, in order.
  [[nodiscard]] std::string arrived() const {
    std::string out;
    for (const auto& record : to.records()) out.push_back(static_cast<char>(record.message.payload.at(20)));
    return out;
  }
  static sim::Bridge::Route vp1(const sim::Bridge& bridge) { return bridge.routes().at(0); }

  VirtualTime time{0x0102030405060708};
  com::MemoryTransport to;
  int wakes = 0;
};

}  // namespace

TEST_F(BridgeTest, OnlyTheFrameCrossesAfterItsDelay) {
  sim::Bridge bridge({.from_prefix = "a/", .to_prefix = "b/c/", .delay_ns = 1000}, to, [this] { ++wakes; });
  EXPECT_THAT(bridge.topics(), testing::Contains("a/rt/oemcan/tx/p2c1_local"));
  bridge.message("a/" + topic::VP1_TX, frame(1, {2, 3, 4, 5, 6, 7, 8, 9}));
  EXPECT_EQ(bridge.send_due(), 1000);
  EXPECT_THAT(to.records(), IsEmpty());
  time.advance(1000);
  bridge.message("a/" + topic::VP1_TX, frame(7));
  EXPECT_EQ(bridge.send_due(), 1000);
  ASSERT_EQ(to.records().size(), 1U);
  const auto record = to.records()[0];
  EXPECT_EQ(record.topic, "b/c/" + topic::VP1_RX);
  EXPECT_THAT(record.message.payload,
              ElementsAre(0x09, 1, 0, 18, 0, 10, 0, 0, 0, 0x11, 0xF0, 0x0A, 6, 5, 4, 3, 2, 1,  // now
                          0x0A, 8, 1, 2, 3, 4, 5, 6, 7, 8));
  time.advance(1000);
  EXPECT_EQ(bridge.send_due(), std::nullopt);
  EXPECT_EQ(arrived(), "\1\7");
  EXPECT_EQ(wakes, 1) << "only a frame that nobody waits for needs a wake-up";
}

TEST_F(BridgeTest, CountsWhatDoesNotCross) {
  sim::Bridge bridge({}, to, [] {});
  auto old = frame(1);
  old.retained = true;
  bridge.message(topic::VP1_TX, old);
  bridge.message("x/" + topic::VP1_TX, frame(2));
  bridge.message(topic::VP1_RX, frame(3));
  bridge.message(topic::VP1_TX, frame(4, {2, 3, 4, 5, 6, 7}));
  bridge.message(topic::VP1_TX, {});
  to.set_connected(false);
  bridge.message(topic::VP1_TX, frame(5));
  EXPECT_EQ(bridge.send_due(), std::nullopt);
  to.set_connected(true);
  for (size_t i = 0; i <= sim::Bridge::CAPACITY; ++i)
    bridge.message(topic::VP1_TX, frame(static_cast<uint8_t>(i)));
  while (const auto pause_ns = bridge.send_due()) time.advance(*pause_ns);
  bridge.message(topic::VP1_TX, frame(6));
  bridge.stop();
  bridge.message(topic::VP1_TX, frame(7));
  EXPECT_EQ(bridge.send_due(), std::nullopt);
  EXPECT_EQ(arrived().size(), sim::Bridge::CAPACITY);
  EXPECT_EQ(arrived().substr(0, 3), std::string("\0\1\2", 3));
  const auto route = vp1(bridge);
  EXPECT_EQ(route.carried, sim::Bridge::CAPACITY);
  EXPECT_EQ(route.dropped, 3) << "no broker, no room, the end";
  EXPECT_EQ(route.malformed, 2);
  EXPECT_EQ(route.lost, 0);
}

TEST_F(BridgeTest, TheSameSeedLosesTheSameFrames) {
  std::vector<std::string> runs;
  for (const uint64_t seed : {1, 1, 2}) {
    to.clear_records();
    sim::Bridge bridge({.loss = 0.25, .seed = seed}, to, [] {});
    for (int i = 0; i < 200; ++i) bridge.message(topic::VP1_TX, frame(static_cast<uint8_t>(i)));
    while (const auto pause_ns = bridge.send_due()) time.advance(*pause_ns);
    runs.push_back(arrived());
    EXPECT_EQ(vp1(bridge).lost + runs.back().size(), 200);
    EXPECT_NEAR(static_cast<double>(runs.back().size()), 150, 20);
  }
  EXPECT_EQ(runs[0], runs[1]);
  EXPECT_NE(runs[0], runs[2]);
}

TEST_F(BridgeTest, AnEndIsBrokerAndPrefix) {
  const struct {
    std::string_view text;
    std::string_view end;  // host|port|prefix, empty: refused
  } rows[] = {{"localhost", "localhost|1883|"},
              {"[::1]:5/a", "::1|5|a/"},
              {"a:65536", ""},
              {"a:1/", ""},
              {"a/\xFF", ""},
              {"[::1]2", ""}};
  for (const auto& row : rows) {
    try {
      const auto end = sim::parse_bridge_end(row.text);
      EXPECT_EQ(end.host + "|" + std::to_string(end.port) + "|" + end.prefix, row.end);
      EXPECT_EQ(sim::parse_bridge_end(end.text()).text(), end.text());
    } catch (const std::invalid_argument& error) {
      EXPECT_EQ(row.end, "") << error.what();
    }
  }
}

TEST(EcuSimTest, EveryCommandSaysItsMessage) {
  const std::string zone = "system/time/timezone ";
  const struct {
    std::string_view line;
    std::string message;
  } rows[] = {
      {"var hwversion=zpt", "system/var/hwversion retained value=zpt"},
      {"  var name  a text = with blanks \r", "system/var/name retained value=a text = with blanks"},
      {"timezone +01:00", zone + "hour_offset=1 minute_offset=0 summer_time=false source=SYSTEM"},
      {"timezone -03:30,summer,source=user",
       zone + "hour_offset=-3 minute_offset=-30 summer_time=true source=USER"},
      {"timezone none", zone + "hour_offset=0 minute_offset=0 summer_time=false source=NONE"},
      {"blackout on", "rt/system/blackout_mode blackout_mode 01"},
      {"hw-version AB 1", "rt/system/hw_version hw_version 41422031 \"AB 1\""},
      {"source local", "system/gnss/source source=LOCAL_RECEIVER"},
      {"log-config 0100 0080", "system/gnss/log_config value=01000080"},
  };
  for (const auto& row : rows) EXPECT_THAT(said(row.line), ElementsAre(row.message)) << row.line;
  EXPECT_THAT(said("help"), IsEmpty());
}

TEST(EcuSimTest, AParameterChangesTheMapAndIsAnnounced) {
  UnitState unit(false);
  EXPECT_THAT(seen(unit.everything()), ElementsAre("system/sysparams retained entries={}"));
  EXPECT_THAT(seen(unit.apply(parse_command("param 0xA00F=01:nootaid"))),
              ElementsAre("system/sysparams retained entries={0x0000A00F={flags=0 value=01}}",
                          "system/sysparam/0x0000A00F value=01"));
  EXPECT_THAT(seen(unit.apply(parse_command("param 41103 00ff"))),
              ElementsAre("system/sysparams retained entries={0x0000A00F={flags=0 value=01} "
                          "0x0000A08F={flags=1 value=00ff}}",
                          "system/sysparam/0x0000A08F value=00ff"));
}

TEST(EcuSimTest, ABrokenCommandIsRefusedWithAReason) {
  const struct {
    std::string line;
    std::string_view reason;
  } rows[] = {
      {"publish x", "unknown command 'publish'"},
      {"var a/b c", "a variable's name, found 'a/b'"},
      {"param", "param: expected a parameter id like 0xA00F, found ''"},
      {"param 0x1A00F00F0 01", "found '0x1A00F00F0'"},
      {"param 0xA00F 1", "bytes in hex, two digits each, found '1'"},
      {"param 0xA00F 01 otaid", "expected nootaid or nothing, found 'otaid'"},
      {"timezone +24:00", "found '+24:00'"},
      {"timezone +-1:00", "found '+-1:00'"},
      {"timezone +01:00 winter", "found 'winter'"},
      {"blackout ON", "found 'ON'"},
      {"hw-version " + std::string(65, 'x'), "a text of 1 to 64 bytes"},
      {"source satellite", "expected local, can or unknown"},
      {"raw system/# 00", "found 'system/#'"},
  };
  for (const auto& row : rows) {
    try {
      (void)parse_command(row.line);
      ADD_FAILURE() << row.line;
    } catch (const sim::BadCommand& error) {
      EXPECT_THAT(error.what(), HasSubstr(row.reason));
    }
  }
  EXPECT_TRUE(sim::is_blank(" # var a b") && sim::is_blank(" \t\r") && !sim::is_blank("var"));
}

TEST(EcuSimTest, LinesComeInPiecesAndHaveALimit) {
  sim::LineBuffer buffer;
  buffer.add("fir");
  EXPECT_EQ(buffer.next(), std::nullopt);
  buffer.add("st\n\nthi");
  EXPECT_EQ(buffer.next(), "first");
  EXPECT_EQ(buffer.next(), "");
  EXPECT_EQ(buffer.next(), std::nullopt);
  buffer.add(std::string(sim::LineBuffer::MAX_LINE, 'x'));
  EXPECT_EQ(buffer.next(), std::nullopt);
  buffer.add("end of it\nquit\n");
  EXPECT_THROW((void)buffer.next(), sim::BadCommand);
  EXPECT_EQ(buffer.next(), "quit");
}
