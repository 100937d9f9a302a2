#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <numeric>

#include "support/Envelope.h"
#include "tools/tap/Collect.h"
#include "tools/tap/Metrics.h"
#include "tools/tap/Report.h"

using namespace ecu::koru;
using namespace ecu::koru::tap;
using namespace testing;

namespace {

constexpr uint64_t MS = 1'000'000;
constexpr uint64_t S = 1'000'000'000;
constexpr uint64_t BOOT = 100 * S;

/// Returns a fix that came `at_ms` after the beginning, sent `delay_us` before.
FixSample fix(uint64_t at_ms, int32_t status = 3, uint64_t delay_us = 0) {
  return {.wall_us = static_cast<int64_t>(at_ms * 1000),
          .arrival_ns = BOOT + at_ms * MS,
          .sent_ns = BOOT + at_ms * MS - delay_us * 1000,
          .status = status,
          .position = {},
          .utc_us = {}};
}

Statistics begun(std::optional<Position> reference = std::nullopt) {
  Statistics statistics(reference);
  statistics.begin({.wall_us = 0, .boot_ns = BOOT});
  return statistics;
}

Arrival arrival(const std::string& topic, const com::Message& message, bool retained = false) {
  return {
      .topic = topic, .payload = message.payload, .wall_us = 0, .boot_ns = BOOT + S, .retained = retained};
}

}  // namespace

TEST(TapFiguresTest, PercentilesAreTheNearestRankWithinTheirResolution) {
  std::vector<uint64_t> to_100(100);
  std::iota(to_100.begin(), to_100.end(), 1);
  const struct {
    std::vector<uint64_t> values;
    double share;
    double expected;
  } rows[] = {{{7}, 0.5, 7},
              {{1, 2, 3, 4}, 0.5, 2},
              {{4, 3, 2, 1, 5}, 0.5, 3},
              {{10, 20}, 0.99, 20},
              {to_100, 0.5, 50},
              {to_100, 0.99, 99},
              {to_100, 1, 100},
              {{0, 0, 0, 1'000'000}, 0.75, 0},
              {{0, 0, 0, 1'000'000}, 0.99, 1'000'000},
              {{1000, 2000, 3000}, 0.5, 2000},
              {{1, uint64_t{1} << 40, UINT64_MAX / 2}, 0.5, 0x1p38}};  // in the last class
  for (const auto& row : rows) {
    Histogram histogram;
    for (const auto value : row.values) histogram.add(value);
    EXPECT_NEAR(histogram.percentile(row.share).value(), row.expected, row.expected / 128)
        << row.values.size() << " values, " << row.share;
  }
  EXPECT_EQ(Histogram().percentile(0.5), std::nullopt);
}

TEST(TapFiguresTest, TheCirclesHoldTheirShareOfThePositions) {
  // 0.0001 degrees are 11.0574 m northwards and 11.1319 m eastwards at the equator, and 5.5800 m eastwards at
  // 60 N, worked out by hand from the axes of WGS 84.
  const struct {
    Position step;  // the k-th of 20 positions is k steps from the reference
    Position from;
    double step_m;
  } rows[] = {{{0.0001, 0}, {0, 0}, 11.0574},
              {{0, 0.0001}, {0, 179.9990}, 11.1319},
              {{0, -0.0001}, {60, 10}, 5.5800},
              {{-0.0001, 0}, {0, 0}, 11.0574}};
  for (const auto& row : rows) {
    Statistics statistics = begun(row.from);
    for (int k = 1; k <= 20; ++k) {
      auto sample = fix(static_cast<uint64_t>(k) * 1000);
      const double east = row.from.longitude + k * row.step.longitude;
      sample.position = {row.from.latitude + k * row.step.latitude, east > 180 ? east - 360 : east};
      statistics.take(sample);
    }
    const Figures figures = statistics.figures(BOOT + 21 * S);
    EXPECT_NEAR(figures.cep50_m.value(), 10 * row.step_m, 0.01);
    EXPECT_NEAR(figures.cep95_m.value(), 19 * row.step_m, 0.01);
  }
}

TEST(TapFiguresTest, WithoutAReferenceTheMeanIsTaken) {
  Statistics statistics = begun();
  for (const double longitude : {179.9999, -179.9999, 179.9999, -179.9999, 180.0}) {
    auto sample = fix(1000);
    sample.position = {10, longitude};
    statistics.take(sample);
  }
  for (const int status : {1, 2}) {  // where such a fix is, is not known
    auto sample = fix(1000, status);
    sample.position = {0, 0};
    statistics.take(sample);
  }
  const Figures figures = statistics.figures(BOOT + S);
  EXPECT_EQ(figures.positions, 5U);
  EXPECT_NEAR(std::abs(figures.reference.value().longitude), 180, 1e-9);
  EXPECT_NEAR(figures.cep50_m.value(), 10.964, 0.001);  // 0.0001 degrees at 10 N
}

TEST(TapFiguresTest, AWeekIsSampledEvenly) {
  Scatter scatter;
  constexpr int COUNT = 7 * 86400;
  for (int i = 0; i < COUNT; ++i)
    scatter.add({static_cast<double>(i * 7919LL % COUNT) * 1e-7, 0});  // evenly up to 0.06 degrees
  const double whole_m = distance_m({0, 0}, {COUNT * 1e-7, 0});
  EXPECT_EQ(scatter.count(), static_cast<uint64_t>(COUNT));
  EXPECT_NEAR(scatter.radius_m({0, 0}, 0.5).value() / whole_m, 0.5, 0.02);
  EXPECT_NEAR(scatter.radius_m({0, 0}, 0.95).value() / whole_m, 0.95, 0.01);
  EXPECT_NEAR(scatter.mean().value().latitude, COUNT * 0.5e-7, 1e-6);
}

TEST(TapFiguresTest, GapsStatusesAndDelaysAreCounted) {
  Statistics statistics = begun();
  const FixSample samples[] = {fix(500, 1),       fix(1250, 3, 100), fix(2250, 3, 200), fix(3000, 2),
                               fix(3749, 3, 300), fix(5250, 3, 0),   fix(5300, 7),      fix(5400, 0),
                               fix(9250, 3),      fix(9300, 1)};
  for (const auto& sample : samples) statistics.take(sample);
  auto from_elsewhere = fix(10'000);
  for (const uint64_t sent_ns :
       {from_elsewhere.arrival_ns + 1, from_elsewhere.arrival_ns - 60 * S, uint64_t{0}}) {
    from_elsewhere.sent_ns = sent_ns;
    statistics.take(from_elsewhere);
  }
  const Figures figures = statistics.figures(BOOT + 12 * S);
  EXPECT_EQ(figures.fixes, 13U);
  EXPECT_THAT(figures.status, ElementsAre(2, 2, 1, 8));
  EXPECT_EQ(figures.first_fix_ns, 1250 * MS);
  EXPECT_NEAR(figures.fixes_per_s.value(), 7 / 8.75, 1e-9);
  // 1499 ms are no gap, 1501 ms and 4 s are; the end comes 2 s after the last fix.
  ASSERT_EQ(figures.first_gaps.size(), 3U);
  EXPECT_EQ(figures.gaps, 3U);
  EXPECT_EQ(figures.first_gaps[0].wall_us, 3'749'000);
  EXPECT_EQ(figures.first_gaps[0].length_ns, 1501 * MS);
  EXPECT_EQ(figures.longest_gap_ns, 4 * S);
  EXPECT_EQ(figures.gap_ns, 7501 * MS);
  EXPECT_FALSE(figures.first_gaps[1].open);
  EXPECT_TRUE(figures.first_gaps[2].open);
  EXPECT_EQ(figures.delays, 10U);
  EXPECT_EQ(figures.delays_unknown, 3U);
  EXPECT_DOUBLE_EQ(figures.delay_largest_s.value(), 0.0003);
  EXPECT_DOUBLE_EQ(figures.delay_sum_s, 0.0006);
  EXPECT_EQ(statistics.figures(BOOT + 10 * S).gaps, 2U) << "looking must not close a gap";
}

TEST(TapFiguresTest, ManyGapsNeedNoMoreMemory) {
  Statistics statistics = begun();
  for (uint64_t i = 0; i < 1000; ++i) statistics.take(fix(2000 * i));
  const Figures figures = statistics.figures(BOOT + 1998 * S);
  EXPECT_EQ(figures.gaps, 999U);
  EXPECT_EQ(figures.first_gaps.size(), Statistics::MAX_GAPS);
  EXPECT_THAT(report_text(figures), HasSubstr("and 899 more\n"));
}

// The second column lists what comes: a fix of a second of UTC ("0", "1", ... or "-" without a date) every
// 250 ms, or a group by its first letter and number.
TEST(TapFiguresTest, AGroupIsMissedWhenItDoesNotComeBetweenTwoFixesOfTheBuses) {
  const struct {
    const char* name;
    std::string_view comes;
    uint64_t due;
    std::array<uint64_t, 2> missed;  // of VP1 and VP2
  } rows[] = {
      {"groups after their fix", "0VW1VW2VW3", 3, {0, 0}},
      {"groups before their fix", "VW0VW1VW2VW3", 3, {0, 0}},
      {"one group is lost", "0VW1V2VW3", 3, {0, 1}},
      {"both are lost", "0VW12VW3", 3, {1, 1}},
      {"four fixes a second", "0VW0001VW1112VW2223", 3, {0, 0}},
      {"without a date once a second", "-VW----VW----VW---0", 3, {0, 0}},
      {"no hardware for the buses", "0123", 3, {0, 0}},
      {"not listened to", "0V1V2V3", 3, {0, 0}},
      {"the newest fix is not judged yet", "0VW1V", 1, {0, 0}},
  };
  for (const auto& row : rows) {
    Statistics statistics = begun();
    uint64_t at_ms = 0;
    for (const char c : row.comes) {
      if (c == 'V' || c == 'W') {
        statistics.take(c == 'V' ? FixGroup::VP1 : FixGroup::VP2);
        continue;
      }
      auto sample = fix(at_ms += 250);
      if (c != '-') sample.utc_us = static_cast<uint64_t>(c - '0') * 1'000'000 + 10'000;
      statistics.take(sample);
    }
    const Figures figures = statistics.figures(BOOT + at_ms * MS);
    EXPECT_EQ(figures.groups_due, row.due) << row.name;
    EXPECT_EQ(figures.groups[0].missed, row.missed[0]) << row.name;
    EXPECT_EQ(figures.groups[1].missed, row.missed[1]) << row.name;
  }
}

TEST(TapFiguresTest, MessagesOfTheBusAreSortedByWhatTheyAre) {
  Statistics statistics = begun();
  pb::GnssData data;
  data.set_status(3);
  data.set_latitude(48.5F);
  data.set_longitude(-11.25F);
  const auto good = test::enveloped(data);
  auto broken = good;
  broken.payload.resize(20);
  collect(arrival("system/gnss/data", good), statistics);
  collect(arrival("system/gnss/data", good, true), statistics);  // old
  collect(arrival("system/gnss/data", broken), statistics);
  collect(arrival("rt/j1939can/tx/td_local", test::envelopedSignal(std::string(8, 'x'))), statistics);
  collect(arrival("rt/j1939can/tx/vp1_local", test::envelopedSignal("short")), statistics);
  collect(arrival("nobody/knows", good), statistics);
  const Figures figures = statistics.figures(BOOT + 2 * S);
  EXPECT_EQ(figures.messages, 6U);
  EXPECT_EQ(figures.fixes, 1U);
  EXPECT_EQ(figures.undecodable, 2U);
  EXPECT_EQ(figures.unknown, 1U);
  EXPECT_THAT(figures.first_undecodable, StartsWith("system/gnss/data: "));
  EXPECT_EQ(figures.groups[static_cast<size_t>(FixGroup::TD)].count, 1U);
  EXPECT_DOUBLE_EQ(figures.reference.value().longitude, -11.25);
}

TEST(TapFiguresTest, OnePositionThatIsNotOnEarthSpoilsNothing) {
  const struct {
    float latitude, longitude;
    std::string_view sentence;
    uint64_t positions;
    double cep95_m;
  } rows[] = {{NAN, 11, "", 1, 0},
              {48, INFINITY, "", 1, 0},
              {1e30F, 11, "", 1, 0},
              {48, 180.1F, "", 1, 0},
              {48, 11, "$GPGGA,,4800.00060,N,01100.0,E,1*00\r\n", 2, 0.556},  // half of 0.00001 degrees
              {90, 11, "$GPGGA,,9000.00060,N,01100.0,E,1*00\r\n", 2, 2'332'000}};
  for (const auto& row : rows) {
    Statistics statistics = begun();
    pb::GnssData data;
    data.set_status(3);
    data.set_latitude(48);
    data.set_longitude(11);
    collect(arrival("system/gnss/data", test::enveloped(data)), statistics);
    data.set_latitude(row.latitude);
    data.set_longitude(row.longitude);
    data.add_nmea(std::string(row.sentence));
    collect(arrival("system/gnss/data", test::enveloped(data)), statistics);
    const Figures figures = statistics.figures(BOOT + 2 * S);
    EXPECT_EQ(figures.fixes, 2U);
    EXPECT_EQ(figures.positions, row.positions) << row.latitude << ' ' << row.longitude;
    EXPECT_NEAR(figures.cep95_m.value(), row.cep95_m, 0.001 + row.cep95_m * 0.01);
  }
}

TEST(TapFiguresTest, MetricsAreEscapedAndLeaveOutWhatIsNotKnown) {
  const Figures nothing = begun().figures(BOOT);
  EXPECT_THAT(metrics_text(nothing, std::nullopt), Not(AnyOf(HasSubstr("satnavd_"), HasSubstr("cep50"))));
  pb::GnssHealth health;
  health.set_state(pb::GnssHealth::NO_FIX);
  health.set_version("a\\b\"c\n\xFF");
  health.set_naks(3);
  const auto text = metrics_text(nothing, Health{.message = health, .age_s = 1.5});
  for (const char* line : {"satnavd_health_age_seconds 1.5\n", "satnavd_state{state=\"NO_FIX\"} 1\n",
                           "satnavd_state{state=\"VALID\"} 0\n", "satnavd_refused_commands_total 3\n",
                           R"(satnavd_build_info{version="a\\b\"c\n\\xff"} 1)"})
    EXPECT_THAT(text, HasSubstr(line));
  EXPECT_THAT(text, Not(HasSubstr("baud")));
}
