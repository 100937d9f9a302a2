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
  const auto invalid = epoch_sentences(fix, options);
  ASSERT_EQ(invalid.size(), 7U);  // one GSA and one GSV a system
  EXPECT_THAT(invalid[0], StartsWith("$GNRMC,030405.25,V,,,,,,,020126,,,N*"));
  EXPECT_THAT(invalid[1], StartsWith("$GNGGA,030405.25,,,,,0,00,99.99,,,,,,*"));
  EXPECT_THAT(invalid[2], StartsWith("$GNGSA,A,1,,,,,,,,,,,,,99.99,99.99,99.99*"));
  EXPECT_EQ(invalid[5], "$GLGSV,1,1,00*65\r\n");
  EXPECT_THAT(invalid[6], StartsWith("$GNGST,030405.25,,,,,,,*"));
}

}  // namespace
}  // namespace ecu::koru::sim
