#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/Envelope.h"
#include "support/Frames.h"
#include "tools/tap/live/Layout.h"

using namespace ecu::koru;
using namespace ecu::koru::tap::live;
using namespace testing;

namespace {

constexpr uint64_t S = 1'000'000'000;  // ns
constexpr uint64_t START = 1000 * S;

/// A unit that publishes; the messages arrive 2 ms after they were made.
struct Unit {
  Model model;

  void publish(const std::string& topic, com::Message message, uint64_t at_ns, bool retained = false) {
    const uint64_t made_ns = at_ns - 2'000'000;
    for (size_t i = 0; i < 8; ++i) message.payload[10 + i] = static_cast<uint8_t>(made_ns >> 8 * i);
    take(topic, message, at_ns, retained);
  }
  void take(const std::string& topic, const com::Message& message, uint64_t at_ns, bool retained = false) {
    const tap::Arrival arrival{
        .topic = topic, .payload = message.payload, .boot_ns = at_ns, .retained = retained};
    model.take(arrival, tap::decode(topic, message.payload));
  }
};

pb::GnssData good_fix() {
  pb::GnssData fix;
  fix.set_status(3);
  fix.set_fix(3);
  fix.set_quality(2);
  fix.set_latitude(-48.5F);
  fix.set_speed(36);
  fix.set_hdop(0.9F);
  fix.set_utc_time_us(1'795'256'130'000'000);
  fix.set_timestamp_ns(START - 150'000'000);
  fix.add_nmea(test::nmea("GPGSV,1,1,02,02,37,123,44,05,10,020,"));
  fix.add_nmea(test::nmea("GNGSA,A,3,02,,,,,,,,,,,,1.7,0.9,1.4"));
  return fix;
}

std::string text_of(const Rows& rows) {
  std::string out;
  for (const auto& row : rows) out += row.text() + "\n";
  return out;
}

}  // namespace

TEST(LiveLayoutTest, EachPageSaysItInWords) {
  pb::GnssData fix = good_fix();
  pb::GnssData lost;
  lost.set_status(2);
  pb::GnssHealth health;
  health.set_state(pb::GnssHealth::ANTENNA_SHORT);
  health.set_reason("no valid fix: antenna short circuit");
  health.set_enabled_systems(9);
  health.set_baud_rate(9600);
  pb::TimeZone zone;
  zone.set_source(pb::TimeZone::USER);
  zone.set_hour_offset(-3);
  zone.set_minute_offset(-30);
  zone.set_summer_time(true);
  pb::TimeZone wild;
  wild.set_source(pb::TimeZone::SYSTEM);
  wild.set_hour_offset(INT32_MIN);
  wild.set_minute_offset(INT32_MIN);
  const auto yes = test::envelopedSignal("\x01");
  const struct {
    std::string_view what;
    std::vector<std::pair<std::string, com::Message>> messages;
    uint64_t age_ns;
    Page page;
    std::vector<std::string> shown;
  } rows[] = {
      {"nothing", {}, 0, Page::fix, {"no message of the position yet", "no health topic", "Latitude      -"}},
      {"a fix",
       {{"system/gnss/data", test::enveloped(fix)}, {"system/time/timezone", test::enveloped(zone)}},
       200'000'000,
       Page::fix,
       {" status 3, valid  3D  differential GNSS  0.2 s old", "Latitude      48.500000 S", "Longitude     - ",
        "Speed         36.0 km/h", "P 1.7  H 0.9  V - ", "2026-11-21 10:15:30.000",
        "06:45:30  -03:30, summer", "Delay         150 ms", " * GPS       2  37 123  44 ######",
        "   GPS       5  10  20   -   "}},
      {"an old fix",
       {{"system/gnss/data", test::enveloped(fix)}},
       3 * S,
       Page::fix,
       {"SILENT  no message of the position for 3.0 s"}},
      {"no fix, and why",
       {{"system/gnss/data", test::enveloped(lost)},
        {"system/gnss/health", test::enveloped(health)},
        {"rt/system/status_gnss_antenna_short_circuit", yes},
        {"rt/system/status_gnss_module_error", yes}},
       0,
       Page::fix,
       {" ANTENNA_SHORT  status 2, warning", "no valid fix: antenna short circuit",
        "Antenna       short circuit", "Module error  yes", "Systems       GPS+Galileo", "9600 bit/s"}},
      {"a zone that is none, and no source",
       {{"system/gnss/data", test::enveloped(fix)}, {"system/time/timezone", test::enveloped(wild)}},
       0,
       Page::fix,
       {"Local time    zone out of range ", "Source        not announced since start "}},
      {"the sky outlives a fix without GSV",
       {{"system/gnss/data", test::enveloped(fix)}, {"system/gnss/data", test::enveloped(lost)}},
       5 * S,
       Page::sky,
       {"GPS 1 of 2 used, seen 5.0 s ago", " * GPS       2  37 123  44 #######"}},
      {"groups and system signals",
       {{"rt/oemcan/tx/p2c1_local", test::envelopedSignal("\x02\xFF\x01\xB4\x6B\x04\xFF\xFE")},
        {"rt/system/hw_version", test::envelopedSignal("v1")}},
       4 * S,
       Page::can,
       {"P2C1  18FF21FE  rt/oemcan/tx/p2c1_local  0.0 Hz  4.0 s old", "  navmodegnss_base 3D   ",
        "vehposwgs84altitudegnss_base 946.5 m", "timesynchdelaygnss_base error",
        " rt/system/hw_version  7631 \"v1\""}},
  };
  for (const auto& row : rows) {
    Unit unit;
    for (const auto& [topic, message] : row.messages) unit.publish(topic, message, START);
    const auto text = text_of(layout(unit.model, {.page = row.page, .now = {.boot_ns = START + row.age_ns}}));
    for (const auto& part : row.shown) EXPECT_THAT(text, HasSubstr(part)) << row.what;
  }
}

TEST(LiveLayoutTest, AGroupThatNoLongerComesIsMarked) {
  Unit unit;
  const auto group = test::envelopedSignal(std::string(8, '\x10'));
  unit.publish("rt/j1939can/tx/vp1_local", group, START);
  unit.publish("rt/oemcan/tx/p2c1_local", group, START + 2 * S);
  const auto marked = [&](uint64_t age_ns, std::string_view part) {
    std::vector<Style> styles;
    for (const auto& row : layout(unit.model, {.page = Page::can, .now = {.boot_ns = START + age_ns}})) {
      for (const auto& span : row.spans()) {
        if (span.text.find(part) != std::string::npos) styles.push_back(span.style);
      }
    }
    return styles;
  };
  EXPECT_THAT(marked(3 * S, "3.0 s old"), ElementsAre(Style::plain));
  EXPECT_THAT(marked(4 * S, "4.0 s old"), ElementsAre(Style::warn));
  EXPECT_THAT(marked(4 * S, "2.0 s old"), ElementsAre(Style::plain));
}

TEST(LiveLayoutTest, SatellitesAreCountedBySystem) {
  pb::GnssData fix;
  fix.set_num_satellites(7);
  for (const auto* sentence :
       {"GPGSV,2,1,05,02,37,123,44,05,10,020,,07,50,100,30,09,20,200,25", "GPGSV,2,2,05,30,15,300,20",
        "GLGSV,1,1,02,65,60,050,40,66,30,150,35", "GNGSA,A,3,02,07,,,,,,,,,,,1.7,0.9,1.4",
        "GNGSA,A,3,66,,,,,,,,,,,,1.7,0.9,1.4"})
    fix.add_nmea(test::nmea(sentence));
  Unit unit;
  unit.publish("system/gnss/data", test::enveloped(fix), START);
  EXPECT_THAT(
      text_of(layout(unit.model, {.page = Page::sky, .now = {.boot_ns = START}})),
      AllOf(HasSubstr("  7 satellites  "), HasSubstr(" GPS 2 of 5, GLONASS 1 of 2 used, seen 0.0 s ago")));
}

TEST(LiveLayoutTest, TheBusPageCountsWhatComes) {
  Unit unit;
  const auto message = test::envelopedSignal("\x01");
  unit.publish("rt/system/x", message, START - 100 * S, true);  // kept by the broker: no arrival
  for (const uint64_t at : {0, 1, 4, 5}) unit.publish("rt/system/x", message, START + at * S);
  unit.take("rt/system/x", {.payload = {1, 2}}, START + 5 * S);
  unit.publish("system/sysparams", test::enveloped(pb::SystemParameters()), START, true);
  unit.take("rt/system/y", message, START);  // made at 0, by another machine's clock
  const auto text = text_of(layout(unit.model, {.page = Page::bus, .now = {.boot_ns = START + 7 * S}}));
  for (const auto* line :
       {" rt/system/x                                6   0.8        -   3.0 s   2.0 s   1\n",
        "   2 bytes are too short for the header of 18",
        " system/sysparams                           1     -        -       -    kept   0\n",
        " rt/system/y                                1     -        -       -   7.0 s   0\n"})
    EXPECT_THAT(text, HasSubstr(line));
  unit.publish("rt/system/x", message, START + 6 * S);
  EXPECT_THAT(text_of(layout(unit.model, {.page = Page::bus, .now = {.boot_ns = START + 7 * S}})),
              HasSubstr("   2.0 ms   3.0 s"));
  for (uint64_t i = 0; i < 100; ++i) unit.publish("rt/system/x", message, START + 7 * S + i * 36'812);
  EXPECT_THAT(text_of(layout(unit.model, {.page = Page::bus, .now = {.boot_ns = START + 8 * S}})),
              HasSubstr(" 107 27165   2.0 ms   3.0 s"));
}

TEST(LiveLayoutTest, TheUnitIsShownHoweverManyTopicsThereAre) {
  Unit unit;
  for (int i = 0; i < 600; ++i)
    unit.publish("rt/system/other_" + std::to_string(i), test::envelopedSignal("1"), START);
  for (const uint64_t s : {0U, 1U})
    unit.publish("system/gnss/data", test::enveloped(good_fix()), START + s * S);
  unit.publish("rt/system/status_gnss_module_error", test::envelopedSignal("\x01"), START);
  unit.publish("rt/oemcan/tx/p2c1_local", test::envelopedSignal("\x02\xFF\x01\xB4\x6B\x04\xFF\xFE"), START);
  unit.take("rt/system/another", {.payload = {1, 2}}, START);
  EXPECT_EQ(unit.model.left_out(), 101U);
  const View fix_view{.now = {.boot_ns = START + S}};
  const View can_view{.height = 600, .page = Page::can, .now = fix_view.now};
  const auto text = text_of(layout(unit.model, fix_view)) + text_of(layout(unit.model, can_view));
  for (const auto* part : {" status 3, valid", "Module error  yes", "Rate          1.0 Hz",
                           "Undecodable   1 messages", "P2C1  18FF21FE"})
    EXPECT_THAT(text, HasSubstr(part));
}

TEST(LiveLayoutTest, AnyContentFitsAnySize) {
  Unit unit;
  pb::GnssHealth health;
  health.set_reason("\x1B[2J\n" + std::string(300, 'r'));
  unit.publish("system/gnss/health", test::enveloped(health), START);
  pb::GnssData fix = good_fix();
  fix.set_latitude(NAN);
  fix.set_speed(INFINITY);
  fix.set_utc_time_us(~uint64_t{0});
  fix.set_timestamp_ns(~uint64_t{0});
  fix.set_fix(99);
  for (int i = 0; i < 90; ++i)
    fix.add_nmea(test::nmea("GPGSV,1,1,01," + std::to_string(i) + ",99,999," + std::to_string(i * 999)));
  unit.publish("system/gnss/data", test::enveloped(fix), START);
  for (int i = 0; i < 600; ++i)
    unit.publish("rt/system/\x1B]0;x\a\xFF" + std::to_string(i) + std::string(i, 'x'),
                 test::envelopedSignal("\x1B"), START);
  constexpr size_t SIZES[][2] = {{0, 0},   {1, 1},   {10, 3},   {79, 24},
                                 {80, 23}, {80, 24}, {131, 40}, {400, 120}};
  for (const auto& [width, height] : SIZES) {
    for (const Page page : PAGES) {
      for (const size_t scroll : {size_t{0}, size_t{3}, ~size_t{0}}) {
        const View view{.width = width,
                        .height = height,
                        .page = page,
                        .scroll = scroll,
                        .connected = false,
                        .source = std::string(500, 'h'),
                        .now = {.boot_ns = 1}};
        const Rows rows = layout(unit.model, view);
        EXPECT_EQ(rows.size(), height);
        if (width >= MIN_WIDTH && height >= MIN_HEIGHT) {
          EXPECT_THAT(rows[0].text(), HasSubstr("h~  the broker is away "));
        }
        for (const auto& row : rows) {
          const std::string text = row.text();
          EXPECT_EQ(text.size(), width) << text;
          EXPECT_TRUE(std::ranges::all_of(text, [](char c) { return c >= ' ' && c <= '~'; })) << text;
        }
      }
    }
  }
}

TEST(LiveLayoutTest, ASmallTerminalShowsTheNeededSize) {
  const auto text = text_of(layout(Model(), {.width = 20, .height = 5}));
  EXPECT_THAT(text, AllOf(HasSubstr("80x24 is needed"), HasSubstr("20x5"), HasSubstr("q quits")));
}

TEST(LiveLayoutTest, ScrollingEndsWithThePage) {
  Unit unit;
  for (int i = 10; i < 40; ++i)
    unit.publish("rt/system/s" + std::to_string(i), test::envelopedSignal("1"), START);
  View view{.page = Page::bus, .now = {.boot_ns = START}};
  EXPECT_EQ(rows_beyond(unit.model, view), 2 + 1 + 30 - 22U);
  EXPECT_THAT(text_of(layout(unit.model, view)),
              AllOf(HasSubstr("s27 "), Not(HasSubstr("s28 ")), HasSubstr("... 12 more rows")));
  view.scroll = rows_beyond(unit.model, view);
  EXPECT_THAT(text_of(layout(unit.model, view)), AllOf(HasSubstr("s39 "), Not(HasSubstr("more rows"))));
  view.height = 60;
  EXPECT_EQ(rows_beyond(unit.model, view), 0U);
}
