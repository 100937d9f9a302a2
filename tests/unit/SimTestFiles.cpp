#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "sim/gnss/Files.h"
#include "sim/gnss/Receiver.h"
#include "sim/gnss/Replay.h"
#include "sim/gnss/RouteFile.h"

namespace ecu::koru::sim {
namespace {

using namespace std::literals;
using testing::HasSubstr;

/// The position's own movement over 2 ms gives the speed and the course that the route tells.
void expect_consistent(const Route& route, double at_s) {
  const RouteState state = route.at(at_s);
  const RoutePoint before = route.at(at_s - 0.001).position;
  const RoutePoint after = route.at(at_s + 0.001).position;
  EXPECT_NEAR(distance_m(before, after) / 0.002, state.speed_ms, 0.02 + 0.001 * state.speed_ms) << at_s;
  if (!state.course_deg) return;
  EXPECT_GE(*state.course_deg, 0.0);
  EXPECT_LT(*state.course_deg, 360.0);
  const double north = after.latitude_deg - before.latitude_deg;
  const double east = std::remainder(after.longitude_deg - before.longitude_deg, 360.0) *
                      std::cos(state.position.latitude_deg * M_PI / 180);
  EXPECT_NEAR(std::remainder(std::atan2(east, north) * 180 / M_PI - *state.course_deg, 360.0), 0.0, 0.6)
      << at_s;
}

TEST(SimRoute, BuiltInDriveAgreesWithItself) {
  const Route route = Route::built_in();
  EXPECT_GT(route.length_m(), 5000);
  for (int i = 0; 0.37 * i < 2 * route.duration_s(); ++i) {
    const double t = 0.37 * i;
    expect_consistent(route, t);
    const RouteState state = route.at(t);
    // No jumps: neither from leg to leg nor from the end to the beginning.
    EXPECT_NEAR(route.at(t + 0.1).speed_ms, state.speed_ms, 0.4) << t;
    EXPECT_LT(distance_m(route.at(t + 0.1).position, state.position), 2.5) << t;
    if (HasFailure()) return;
  }
}

TEST(SimRoute, GpxWithTimesWestSouthAndAcrossTheDateLine) {
  const Route route = parse_gpx(R"(<?xml version="1.0"?><!-- <trkpt lat="x"> -->
    <g:gpx xmlns:g="urn:x"><g:trk><trkseg>
    <g:trkpt lat="-33.5" lon='179.9995'><ele>10</ele><time>2026-05-01T10:00:00Z</time></g:trkpt>
    <trkpt lon="-179.9995" lat="-33.5"><ele>30</ele><time>2026-05-01T12:00:10.000+02:00</time></trkpt>
    </trkseg><trkseg><trkpt lat="-33.5" lon="-179.9995" note="a>b"><time>2026-05-01T10:00:30Z</time></trkpt>
    </trkseg></g:trk></g:gpx>)",
                                "t.gpx");
  EXPECT_NEAR(route.at(5).speed_ms, 9.27, 0.02);
  EXPECT_NEAR(*route.at(5).course_deg, 90, 0.1);
  EXPECT_NEAR(std::abs(route.at(5).position.longitude_deg), 180, 1e-6);
  EXPECT_NEAR(route.at(5).position.altitude_m, 20, 1e-6);
  EXPECT_EQ(route.at(20).speed_ms, 0);  // stands for 20 s
  EXPECT_EQ(route.at(20).position.altitude_m, 30);
  EXPECT_NEAR(*route.at(31).course_deg, 270, 0.1);  // and drives back
  for (const double t : {1.0, 9.0, 20.0, 35.0}) expect_consistent(route, t);
}

TEST(SimRoute, CsvInItsForms) {
  const Route plain = parse_csv("# a comment\n\n48,-122.5,100\r\n48.001,-122.5,110\n", "a.csv");
  EXPECT_NEAR(plain.at(1).speed_ms * 3.6, default_route_speed_kmh, 1e-9);
  EXPECT_NEAR(plain.at(plain.duration_s() / 4).position.altitude_m, 105, 1e-6);
  const Route named = parse_csv("name,speed,lon,lat\nA,0,8,47\nB,72,8.01,47\n", "b.csv");
  EXPECT_NEAR(named.at(10).speed_ms, 10 * 20.0 / (2 * distance_m({47, 8, 0}, {47, 8.01, 0}) / 20), 1e-6);
  expect_consistent(named, 10);
  const Route still = parse_csv("47,8,500\n", "c.csv");
  EXPECT_EQ(still.at(1234).speed_ms, 0);
  EXPECT_FALSE(still.at(1234).course_deg);
}

TEST(SimRoute, BrokenFilesAreNamedWithLineAndReason) {
  const auto gpx = [](const std::string& points) { return "<gpx>\n" + points + "\n</gpx>"; };
  const struct {
    std::string text, expected;
  } cases[] = {
      {"", "f:1: no point"},
      {"x,y\n1,2\n", "f:1: neither a point"},
      {"47,8,500\n47,abc,500\n", "f:2: column lon is not a number: abc"},
      {"47,8,500\n91,8,500\n", "f:2: the latitude is not within"},
      {"47,8,nan\n", "f:1: the altitude is not within"},
      {"47,8,500,0\n\n47.1,8,500,0\n", "f:3: no speed, but a way to go"},
      {"47,8,500,5\n47.1,8,500,2000\n", "f:2: the speed is above"},
      {"47,8,500\n-47,-172,500\n", "f:2: more than 10000 km"},
      {gpx("<trkpt lat='1' lon='2,5'/>"), "f:2: attribute lon is not a number: 2,5"},
      {gpx("<trkpt lat='1' lon='2'>\n<time>noon</time>"), "f:3: not a time: noon"},
      {gpx("<trkpt lat='1' lon='2'>"), "the file ends inside a track point"},
      {gpx("\n<trkpt lat='1"), "f:3: a tag never ends"},
      {gpx("<trkpt lat='1' lon='2'/>\n<trkpt lat='1' lon='2'><time>2026-01-01T00:00:00Z</time></trkpt>"),
       "f:3: some track points"},
      {gpx("<trkpt lat='1' lon='2'><time>2026-01-01T00:00:00Z</time></trkpt>\n"
           "<trkpt lat='1' lon='2'><time>2026-01-01T00:00:00Z</time></trkpt>"),
       "f:3: the time does not advance"},
  };
  for (const auto& c : cases) {
    try {
      (void)(c.text.starts_with('<') ? parse_gpx(c.text, "f") : parse_csv(c.text, "f"));
      ADD_FAILURE() << "taken: " << c.text;
    } catch (const FileError& e) {
      EXPECT_THAT(e.what(), HasSubstr(c.expected)) << c.text;
    }
  }
}

// Garbage in front, a UBX frame that looks like a line end, an epoch across midnight, one without a time, no
// line end.
constexpr std::string_view recorded =
    "\x01\xFFgarbage$GNRMC,235959.50,A*00\r\n$GNGST,1*00\r\n\xB5\x62\x01\x21\x00\x0A\x00\n"
    "$GPRMC,000000.25,V*00\r\n$XXRMC\r\n$GNRMC,,V*00\r\nnormcRMC,$GLRMC,000009,A"sv;

TEST(SimReplay, CutsAtRmcAndKeepsEveryByte) {
  const Recording recording{std::string(recorded), "log"};
  ASSERT_EQ(recording.epochs().size(), 4U);
  std::string together;
  for (const auto& epoch : recording.epochs()) together += recording.bytes_of(epoch);
  EXPECT_EQ(together, recorded);
  const int64_t offsets[] = {0, 750'000, 1'500'000, 2'250'000};
  for (size_t i = 0; i < 4; ++i) {
    EXPECT_EQ(recording.epochs()[i].offset_us, offsets[i]);
    EXPECT_EQ(recording.bytes_of(recording.epochs()[i]).substr(i == 0 ? 12 : 3, 4), "RMC,");
  }
  EXPECT_THROW(Recording("$GNGGA,1\r\n", "log"), FileError);
}

std::string play(ReceiverOptions options, int64_t until_us, int64_t* end_us = nullptr) {
  options.recording = std::make_shared<Recording>(std::string(recorded), "log");
  Receiver receiver(options);
  std::string text;
  uint8_t block[64];
  int64_t now = 0;
  for (; !receiver.finished() && now <= until_us; now = receiver.finished() ? now : receiver.next_byte_us()) {
    receiver.advance_to(now);
    while (const size_t count = receiver.read(block)) text.append(block, block + count);
  }
  if (end_us != nullptr) *end_us = now;
  return text;
}

TEST(SimReplay, PlaysAtItsPaceAndEnds) {
  ReceiverOptions options;
  options.baud = 115200;
  int64_t end_us = 0;
  EXPECT_EQ(play(options, INT64_MAX, &end_us), recorded);
  EXPECT_NEAR(static_cast<double>(end_us), 2'250'000, 5'000);
  options.replay_speed = 10;
  EXPECT_EQ(play(options, INT64_MAX, &end_us), recorded);
  EXPECT_NEAR(static_cast<double>(end_us), 225'000, 5'000);
}

}  // namespace
}  // namespace ecu::koru::sim
