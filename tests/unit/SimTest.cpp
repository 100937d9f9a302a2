#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "sim/gnss/Files.h"
#include "sim/gnss/Receiver.h"
#include "sim/gnss/Replay.h"
#include "sim/gnss/RouteFile.h"
#include "sim/gnss/Utc.h"

namespace ecu::koru::sim {
namespace {

using namespace std::literals;

std::string read_all(Receiver& receiver) {
  std::string text;
  uint8_t block[100];
  while (const size_t count = receiver.read(block)) text.append(block, block + count);
  return text;
}

TEST(SimSentences, AreWrittenAsReceiversWriteThem) {
  Fix fix;
  fix.utc_us = *parse_iso8601("2026-12-31T23:59:59.999Z");  // to hundredths that is the next year
  fix.latitude_deg = -(7 + 59.999996 / 60);                 // and these are full degrees
  fix.longitude_deg = -122.5;
  fix.altitude_m = -0.04;
  fix.speed_kmh = 1.852;
  fix.course_deg = 359.996;
  fix.satellites = 7;
  fix.pdop = 1.949, fix.hdop = 1.18, fix.vdop = 1.54;
  fix.latitude_error_m = 2.5, fix.longitude_error_m = 3.14, fix.altitude_error_m = 10;
  SentenceOptions options{{Constellation::galileo}, NmeaVersion::v4_10, false};
  using testing::HasSubstr;
  using testing::StartsWith;
  const auto sent = epoch_sentences(fix, options);
  ASSERT_EQ(sent.size(), 4U);
  EXPECT_THAT(sent[0], StartsWith("$GARMC,000000.00,A,0800.00000,S,12230.00000,W,1.000,0.00,010127,,,A,V*"));
  EXPECT_THAT(sent[1], StartsWith("$GAGGA,000000.00,0800.00000,S,12230.00000,W,1,07,1.18,0.0,M,47.6,M,,*"));
  EXPECT_THAT(sent[2], testing::ContainsRegex("^\\$GAGSA,A,3,[0-9,]*,1.95,1.18,1.54,3\\*"));
  EXPECT_THAT(sent[3], StartsWith("$GAGST,000000.00,4.0,,,,2.5,3.1,10.0*"));

  fix.valid = false;
  fix.utc_us = *parse_iso8601("2026-01-02T03:04:05.25Z");
  options = {{Constellation::gps, Constellation::glonass}, NmeaVersion::v4_0, true};
  EXPECT_THAT(
      epoch_sentences(fix, options),
      testing::ElementsAre(StartsWith("$GNRMC,030405.25,V,,,,,,,020126,,,N*"),
                           StartsWith("$GNGGA,030405.25,,,,,0,00,99.99,,,,,,*"),
                           StartsWith("$GNGSA,A,1,,,,,,,,,,,,,99.99,99.99,99.99*"), HasSubstr("GNGSA"),
                           StartsWith("$GPGSV,1,1,00*79\r\n"), StartsWith("$GLGSV,1,1,00*65\r\n"),
                           StartsWith("$GNGST,030405.25,,,,,,,*")));
  EXPECT_EQ(nmea_checksum("GPRMC,083559.00,A,4717.11437,N,00833.91522,E,0.004,77.52,091202,,,A"), 0x57);
}

TEST(SimReceiver, IsGarbageAtAnotherSpeed) {
  const struct {
    unsigned own, host;
    double least, most;  // bytes heard for one sent
  } cases[] = {
      {38400, 19200, 0.3, 0.7}, {38400, 4800, 0.05, 0.2}, {9600, 19200, 1.0, 2.0}, {9600, 115200, 1.5, 5.0}};
  for (const auto& c : cases) {
    ReceiverOptions options;
    options.baud = c.own;
    Receiver receiver(options);
    receiver.set_host_baud(c.host);
    receiver.advance_to(10 * second_us);
    const std::string garbage = read_all(receiver);
    const double density =
        static_cast<double>(garbage.size()) / static_cast<double>(receiver.statistics().bytes_sent);
    EXPECT_GT(density, c.least) << c.host;
    EXPECT_LT(density, c.most) << c.host;
    EXPECT_EQ(garbage.find("RMC"), std::string::npos);
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
}

TEST(SimRoute, CsvInItsForms) {
  const Route plain = parse_csv("# a comment\n\n48,-122.5,100\r\n48.001,-122.5,110\n", "a.csv");
  EXPECT_NEAR(plain.at(1).speed_ms * 3.6, default_route_speed_kmh, 1e-9);
  EXPECT_NEAR(plain.at(plain.duration_s() / 4).position.altitude_m, 105, 1e-6);
  const Route named = parse_csv("name,speed,lon,lat\nA,0,8,47\nB,72,8.01,47\n", "b.csv");
  EXPECT_NEAR(named.at(10).speed_ms, 10 * 20.0 / (2 * distance_m({47, 8, 0}, {47, 8.01, 0}) / 20), 1e-6);
  const Route still = parse_csv("47,8,500\n", "c.csv");
  EXPECT_EQ(still.at(1234).speed_ms, 0);
  EXPECT_FALSE(still.at(1234).course_deg);
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

}  // namespace
}  // namespace ecu::koru::sim
