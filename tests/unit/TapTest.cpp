#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/Envelope.h"
#include "tools/tap/Changes.h"
#include "tools/tap/Fields.h"
#include "tools/tap/Lines.h"
#include "tools/tap/ValueTexts.h"

using namespace ecu::koru;

// Nothing from outside may reach the terminal as a control character or look like a separate line.
TEST(TapTest, CannotBeMadeToForgeALine) {
  const struct {
    std::string_view topic;
    std::string value;
    std::string_view shown;
  } rows[] = {{"system/var/a", "\x1B[2J\nfalse", "value=\\x1B[2J\\x0Afalse\n"},
              {"rt/\x1B\n", "\n", "rt/\\x1B\\x0A ["},
              {"rt/x", std::string(1000, 'A'), "4141...\n"}};
  for (const auto& row : rows) {
    const auto message = test::envelopedSignal(row.value);
    const std::string line = tap::human_line({.topic = row.topic, .payload = message.payload}, true);
    EXPECT_THAT(line, testing::HasSubstr(row.shown));
    EXPECT_EQ(line.find('\n'), line.size() - 1);
    EXPECT_EQ(line.find('\x1B'), std::string::npos);
  }
}

TEST(TapTest, ValuesHaveTheTextsOfTheSignalDatabase) {
  const struct {
    std::string_view what, tables;
    unsigned char raw;
    std::string_view shown;
  } rows[] = {
      {"a text", R"(NS_ : VAL_ CM_ BS_: VAL_ 2566857214 navmodegnss_base 2 "3D" 1 "2D" ;)", 2, "3D"},
      {"not in the table", R"(VAL_ 2566857214 navmodegnss_base 1 "2D" ;)", 2, ""},
      {"of another message", R"(VAL_ 1 navmodegnss_base 2 "3D" ;)", 2, ""},
      {"not available", R"(VAL_ 2566857214 navmodegnss_base 255 "none" ;)", 255, ""},
      {"malformed tables before it",
       R"(VAL_ 5 x -1 "a" ; VAL_ env 2 "b" ; VAL_ 2566857214 navmodegnss_base 2 "3D" "x" ; VAL_ 4 "open)", 2,
       "3D"},
  };
  for (const auto& row : rows) {
    auto group = rt::SignalAdapter::instance().create_sg("rt/oemcan/tx/p2c1_local");
    ASSERT_TRUE(group.set_signal_data("navmodegnss_base", {row.raw}));
    EXPECT_EQ(tap::ValueTexts(row.tables).find(group, *group.signal("navmodegnss_base")), row.shown)
        << row.what;
  }
  const auto message = test::envelopedSignal("\x02\x03\x01\xB4\x6B\x04\xFF\xFF");
  const tap::Arrival arrival{.topic = "rt/oemcan/tx/p2c1_local", .payload = message.payload};
  EXPECT_THAT(tap::human_line(arrival, false),
              testing::HasSubstr(
                  "navmodegnss_base 3D  qualityindicatorgnss_base dead reckoning  summertimegps_base on "));
  EXPECT_THAT(tap::json_line(arrival), testing::HasSubstr(R"("value":2,"status":"valid","text":"3D")"));
}

TEST(TapTest, OnlyTheTimeIsNoChange) {
  pb::GnssData fix;
  fix.set_latitude(48);
  fix.set_status(3);
  pb::GnssHealth health;
  health.set_state(pb::GnssHealth::VALID);
  const auto with = [](auto body, const auto& change) {
    change(body);
    return test::enveloped(body);
  };
  const struct {
    std::string_view what, topic;
    com::Message before, after;
    bool differs;
  } rows[] = {
      {"times of a fix", "system/gnss/data", test::enveloped(fix),
       with(fix,
            [](auto& f) {
              f.set_utc_time_us(5);
              f.set_timestamp_ns(5);
              f.add_nmea("$");
            }),
       false},
      {"position", "system/gnss/data", test::enveloped(fix), with(fix, [](auto& f) { f.set_latitude(49); }),
       true},
      {"a field is gone", "system/gnss/data", test::enveloped(fix),
       with(fix, [](auto& f) { f.clear_status(); }), true},
      {"ages", "system/gnss/health", test::enveloped(health),
       with(health, [](auto& h) { h.set_uptime_ms(9); }), false},
      {"counts", "system/gnss/health", test::enveloped(health), with(health, [](auto& h) { h.set_fixes(9); }),
       true},
      {"the clock", "systime/td", test::envelopedSignal("\x01\x02\x03\x04\x05\x06\x7D\x7E"),
       test::envelopedSignal("\x02\x02\x03\x04\x05\x06\x7D\x7E"), false},
      {"the zone", "systime/td", test::envelopedSignal("\x01\x02\x03\x04\x05\x06\x7D\x7E"),
       test::envelopedSignal("\x01\x02\x03\x04\x05\x06\x7D\x7F"), true},
      {"not decodable", "a/b", {.payload = {1, 2}}, {.payload = {1, 3}}, true},
      {"not decodable, the same", "a/b", {.payload = {1, 2}}, {.payload = {1, 2}}, false},
  };
  for (const auto& row : rows) {
    tap::Changes changes;
    EXPECT_TRUE(changes.differs({.topic = row.topic, .payload = row.before.payload})) << row.what;
    EXPECT_TRUE(changes.differs({.topic = "other", .payload = row.after.payload})) << row.what;
    EXPECT_EQ(changes.differs({.topic = row.topic, .payload = row.after.payload}), row.differs) << row.what;
  }
}

TEST(TapTest, LinesFitTheTerminal) {
  const struct {
    std::string_view line;
    size_t width;
    std::string_view shown;
  } rows[] = {
      {"a  b\n", 0, "a  b\n"},
      {"latitude 48.1 deg  longitude 11.5 deg\nnext\n", 37, "latitude 48.1 deg  longitude 11.5 deg\nnext\n"},
      {"latitude 48.1 deg  longitude 11.5 deg  raw 00\n", 36,
       "latitude 48.1 deg\n    longitude 11.5 deg  raw 00\n"},
      {"a  latitude not available here\n", 26, "a  latitude not available\n    here\n"},
      {"0123456789012345678901234567890123456789\n", 20,
       "01234567890123456789\n    0123456789012345\n    6789\n"},
  };
  for (const auto& row : rows) EXPECT_EQ(tap::wrapped(row.line, row.width), row.shown) << row.line;
}
