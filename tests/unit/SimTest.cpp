#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "sim/gnss/Sentences.h"
#include "sim/gnss/Utc.h"

namespace ecu::koru::sim {
namespace {

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

}  // namespace
}  // namespace ecu::koru::sim
