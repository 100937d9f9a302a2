#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/Frames.h"
#include "tools/tap/Sky.h"

using namespace ecu::koru::tap;
using namespace testing;

namespace {

/// Returns "GPS 2 37/123 44*; Galileo 1 -/- -": number, elevation/azimuth, C/N0, '*' if it is used.
std::string text_of(const Sky& sky) {
  const auto shown = [](std::optional<int> value) { return value ? std::to_string(*value) : "-"; };
  std::string out;
  for (const auto& s : sky.satellites) {
    out.append(out.empty() ? "" : "; ").append(name_of(s.system)).append(" " + std::to_string(s.number));
    out += " " + shown(s.elevation_deg) + "/" + shown(s.azimuth_deg) + " " + shown(s.cn0_dbhz);
    out += s.used ? "*" : "";
  }
  return out;
}

}  // namespace

TEST(SkyTest, SatellitesOfEverySystemAndVersionComeOutAlike) {
  const struct {
    std::string_view what;
    std::vector<std::string_view> bodies;
    std::string_view shown;
  } rows[] = {
      {"NMEA 4.0: numbers say the system",
       {"GNGSA,A,3,02,,,,,,,,,,,,1.7,0.9,1.4", "GNGSA,A,3,66,301,,,,,,,,,,,1.7,0.9,1.4",
        "GPGSV,1,1,02,02,37,123,44,133,20,200,", "GLGSV,1,1,01,66,08,010,26", "GAGSV,1,1,01,301,50,300,40"},
       "GPS 2 37/123 44*; SBAS 46 20/200 -; GLONASS 66 8/10 26*; Galileo 1 50/300 40*"},
      {"NMEA 4.10: system ids; the signals of a satellite are one row, with the strongest",
       {"GNGSA,A,3,02,,,,,,,,,,,,1.7,0.9,1.4,3", "GAGSV,1,1,01,02,37,123,30,7", "GAGSV,1,1,01,02,37,123,35,2",
        "GPGSV,1,1,01,02,10,020,,1", "GBGSV,1,1,01,05,10,020,33,1"},
       "GPS 2 10/20 -; Galileo 2 37/123 35*; BeiDou 5 10/20 33"},
      {"one talker: SBAS is the receiver's too, a system of its own",
       {"GPGSA,A,3,33,,,,,,,,,,,,1,1,1"},
       "SBAS 33 -/- -*"},
      {"without position and empty", {"GPGSV,1,1,00", "GNGSA,A,1,,,,,,,,,,,,,99.99,99.99,99.99"}, ""},
      {"malformed: what can be read remains",
       {"GPGSV,1,1,03,02,xx,-5,44,,,,,03,1", "GPGSA,A,3,02", "GPGSV", "", "GPGSV,1,1,01,99999999999,1,2,3"},
       "GPS 2 -/- 44"},
  };
  for (const auto& row : rows) {
    ecu::koru::pb::GnssData fix;
    for (const auto body : row.bodies) fix.add_nmea(test::nmea(body));
    EXPECT_EQ(text_of(read_sky(fix)), row.shown) << row.what;
  }
}

TEST(SkyTest, DilutionsAndWrongChecksums) {
  ecu::koru::pb::GnssData fix;
  fix.add_nmea("$GPGSV,1,1,01,02,37,123,44*00\r\n");
  fix.add_nmea("$GPGSV,1,1,01,02,37,123,44");
  fix.add_nmea(test::nmea("GNGSA,A,3,02,05,,,,,,,,,,,1.70,0.9,99.99"));
  const Sky sky = read_sky(fix);
  EXPECT_EQ(text_of(sky), "GPS 2 -/- -*; GPS 5 -/- -*");
  EXPECT_FALSE(sky.has_view);
  EXPECT_EQ(sky.pdop, 1.7);
  fix.add_nmea(test::nmea("GNGSA,A,3,02,05,,,,,,,,,,,99.99,0.9,1.4"));
  EXPECT_EQ(read_sky(fix).pdop, std::nullopt);
}
