#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <ctime>

#include "nmea/GnssInfo.h"
#include "nmea/NmeaFields.h"
#include "nmea/NmeaParsers.h"
#include "nmea/UtcCalendar.h"

using namespace ecu::koru::gpspub;

namespace {

const double NONE = std::nan("");

GnssInfo parsed(const std::string& sentence, GnssInfo info = GnssInfo()) {
  const std::string type = sentence.substr(3, 3);
  if (type == "RMC") GnssUtils::parseRMCString(sentence + "*00\r\n", info);
  if (type == "GGA") GnssUtils::parseGGAString(sentence + "*00\r\n", info);
  if (type == "GSA") GnssUtils::parseGSAString(sentence + "*00\r\n", info);
  if (type == "GST") GnssUtils::parseGSTString(sentence + "*00\r\n", info);
  return info;
}

/// Returns values as text, so that NaN ("not available") equals itself.
std::string shown(std::initializer_list<double> values) {
  std::string text;
  for (const double value : values) text += (std::isnan(value) ? "-" : std::to_string(value)) + " ";
  return text;
}

}  // namespace

TEST(NmeaRecordTest, TranslatesTheCodesOfTheBuses) {
  const struct {
    int set, nav_mode, nav_mode_stored, quality, quality_stored, status_undated, status_dated;
  } rows[] = {{-1, -1, -1, -1, -1, 1, 1}, {0, 0, 1, 0, 0, 2, 2},   {1, 1, 2, 1, 1, 2, 3},
              {2, 2, 3, 2, 2, 2, 3},      {3, -1, -1, 3, 6, 1, 1}, {4, -1, -1, -1, -1, 1, 1}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.set);
    GnssInfo info;
    info.setNavModeGnss(row.set);
    info.setQualityIndicatorGnss(row.set);
    EXPECT_EQ(info.getNavModeGnss(), row.nav_mode);
    EXPECT_EQ(info.m_nav_mode, row.nav_mode_stored);
    EXPECT_EQ(info.getQualityIndicatorGnss(), row.quality);
    EXPECT_EQ(info.m_quality_indicator, row.quality_stored);
    EXPECT_EQ(info.getStatus(), row.status_undated);
    info.m_utc_tm.tm_mday = 1;
    EXPECT_EQ(info.getStatus(), row.status_dated);
    info.setLatitudeDegDec(-48.1173);
    EXPECT_EQ(shown({info.m_latitude, info.getLatitudeDecDeg()}), shown({-4807.038, -48.1173}));
  }
}

TEST(NmeaRecordTest, DatesAreThoseOfStrptimeInEveryZone) {
  setenv("TZ", "XST3:30XDT,M3.2.0,M11.1.0", 1);  // half an hour, and summer time
  tzset();
  for (int i = 0; i < 31 * 12 * 100; ++i) {
    char text[80];  // the dates include 31 February
    const int s = i * 7919 % 86400;
    (void)std::snprintf(text, sizeof text, "%02d%02d%02d:%02d%02d%02d", i % 31 + 1, i / 31 % 12 + 1, i / 372,
                        s / 3600, s / 60 % 60, s % 60);
    std::tm expected{};
    std::tm utc{};
    ASSERT_NE(strptime(text, "%d%m%y:%H%M%S", &expected), nullptr);
    const bool dated = i / 372 != 69;  // 1969 is too early
    ASSERT_EQ(parseDateTime({text, 6}, {text + 7, 6}, utc), dated) << text;
    if (!dated) continue;
    for (const auto member :
         {&std::tm::tm_sec, &std::tm::tm_min, &std::tm::tm_hour, &std::tm::tm_mday, &std::tm::tm_mon,
          &std::tm::tm_year, &std::tm::tm_wday, &std::tm::tm_yday, &std::tm::tm_isdst})
      ASSERT_EQ(utc.*member, expected.*member) << text;
    ASSERT_EQ(secondsSinceEpoch(utc), timegm(&expected)) << text;
  }
  EXPECT_EQ(parsed("$GPRMC,123519.50,A,,,,,,,230394,,").getUtcTimeUs(), 764'426'119'500'000);
  EXPECT_EQ(parsed("$GPRMC,000000.00,A,,,,,,,010170,,").getUtcTimeUs(), 0);
  GnssInfo undated = parsed("$GPRMC,235959.00,A,,,,,,,311269,,");
  EXPECT_EQ(undated.getUtcTimeUs(), -1);
  EXPECT_EQ(undated.getStatus(), 2);
  unsetenv("TZ");
  tzset();
}

TEST(NmeaRecordTest, TakesTheDateOfATrustedRmcOnly) {
  const auto rmc = [](const std::string& time, const std::string& date, char status = 'A',
                      uint8_t flags = 0) {
    GnssInfo info;
    info.m_utc_valid_flags = flags;
    return parsed("$GPRMC," + time + "," + status + ",,,,,,," + date + ",,", info);
  };
  const std::pair<std::string, int64_t> times[] = {
      {"123519", 0},    {"123519.00", 0}, {"123519.50", 500'000}, {"12351.500", 500'000}, {"123519..5", 0},
      {"123519.5", -1}, {"", -1},         {"123519.500", -1}};
  for (const auto& [time, fraction_us] : times) {
    EXPECT_EQ(rmc(time, "230394").m_utc_fraction_us, fraction_us) << time;
    EXPECT_EQ(rmc(time, "230394").m_utc_tm.tm_mday, fraction_us < 0 ? 0 : 23) << time;
  }
  for (const auto* none : {"23039", "23039x", "000394", "320394", "230094", "231394", ""})
    EXPECT_EQ(rmc("123519", none).m_utc_tm.tm_mday, 0) << none;
  for (const auto* none : {"240000", "126000", "123562"})
    EXPECT_EQ(rmc(none, "230394").m_utc_tm.tm_mday, 0) << none;
  // If a time does not have six digits, the part counts that strptime read before it gave up.
  using Odd = std::pair<const char*, int>;
  for (const auto& [time, taken] : {Odd{"12351.500", 123501},
                                    {"1235.5000", 123500},
                                    {"12.500000", 120000},
                                    {"9.5000000", 90000},
                                    {".50000000", 0}}) {
    const GnssInfo info = rmc(time, "230394");
    EXPECT_EQ(info.m_utc_tm.tm_hour * 10000 + info.m_utc_tm.tm_min * 100 + info.m_utc_tm.tm_sec, taken)
        << time;
    EXPECT_EQ(info.m_utc_tm.tm_mday, 23) << time;
    EXPECT_EQ(info.m_utc_fraction_us, 500'000) << time;
    for (const char* none : {"320394", "231394", "230369"}) EXPECT_EQ(rmc(time, none).getStatus(), 2) << time;
  }
  for (const int flags : {0, 3, 4, 7})
    EXPECT_EQ(rmc("123519", "230394", 'V', static_cast<uint8_t>(flags)).m_utc_tm.tm_mday,
              flags >= 4 ? 23 : 0);
}

TEST(NmeaRecordTest, TakesWhatIsWellFormedAndLeavesTheRest) {
  const struct {
    std::string sentence;
    double status, latitude, longitude, speed, course;  // the last four were 1.0 before
  } rmc[] = {{"$GPRMC,1,A,4807.038,N,01131.000,E,022.4,084.4,230394,,", 'A', 4807.038, 1131, 41.4848, 84.4},
             {"$GNRMC,,V,4807.038,S,01131.000,W,10,0,,,,N", 'V', -4807.038, -1131, 18.52, 0},
             {"$GLRMC,,,48O7.038,S,-1131.0,E,,,,,", -1, -1, 1, 1, NONE},
             {"$GLRMC,,AV,,N,,W,x,x,,,", -1, 1, -1, 0, 0},
             {"$GLRMC,,A,5.5.5,SS,1e5,,1e1,-5,,,", 'A', 5.5, 1, 18.52, -5},
             {"$GLRMC,,A,2,N,3,E,4,", -1, 1, 1, 1, 1}};  // too few fields
  for (const auto& row : rmc) {
    GnssInfo info;
    info.m_latitude = info.m_longitude = info.m_speed = info.m_course = 1;
    info = parsed(row.sentence, info);
    EXPECT_EQ(shown({double(info.m_status), info.m_latitude, info.m_longitude, info.m_speed, info.m_course}),
              shown({row.status, row.latitude, row.longitude, row.speed, row.course}));
  }
  GnssInfo info = parsed("$GPGGA,092750.000,5321.6802,N,00630.3372,W,1,8,1.03,61.7,M,55.2,M,,");
  info = parsed("$GPGGA,,,,,W,12,,,,M,,M,,", info);
  info = parsed("$GPGGA,1,2,N,3,E,4,5,6", info);  // too few fields
  EXPECT_THROW(GnssUtils::parseGGAString("$GPGGA,1,2,S,3,E,4,x,6,7,M,,,,*00\r\n", info),
               std::invalid_argument);
  EXPECT_EQ(shown({info.m_gga_time, info.m_latitude, info.m_longitude, info.m_altitude, info.m_hdop}),
            shown({92750, 5321.6802, -630.3372, 61.7, NONE}));
  EXPECT_EQ(info.m_quality_indicator, 1);
  EXPECT_EQ(info.m_num_satellites, 8);
  EXPECT_EQ(nmeaCount(" +012x"), 12);
  EXPECT_EQ(nmeaCount("2147483647"), 2147483647);
  for (const auto* no : {"", "-", ".5"}) EXPECT_THROW((void)nmeaCount(no), std::invalid_argument) << no;
  for (const auto* big : {"2147483648", "-1", "99999999999999999999"})
    EXPECT_THROW((void)nmeaCount(big), std::out_of_range) << big;
}

TEST(NmeaRecordTest, ReadsGsaAndGst) {
  const struct {
    std::string fields;
    double nav_mode, pdop, hdop, vdop;
  } gsa[] = {{"A,3,01,02,03,04,,,,,,,,,1.94,1.18,1.54,1", 3, 1.94, 1.18, 1.54},
             {"A,2,01,02,03,04,,,,,,,,,1.94,1.18,1.54", 2, 1.94, 1.18, 1.54},
             {"A,33,,,,,,,,,,,,,9,,8", -1, 9, NONE, 8},
             {"A,3", 3, NONE, NONE, NONE}};
  for (const auto& row : gsa) {
    const GnssInfo info = parsed("$GNGSA," + row.fields);
    EXPECT_EQ(shown({double(info.m_nav_mode), info.m_pdop, info.m_hdop, info.m_vdop}),
              shown({row.nav_mode, row.pdop, row.hdop, row.vdop}));
  }
  const std::pair<std::string, double> gst[] = {
      {"5,2.5,3.1,9.9", 3.1}, {"5,3.2,3.1,9.9", 3.2}, {",,,", 0},
      {",2.5,,", 2.5},        {",,3.5", 3.5},         {",3.5", NONE}};
  for (const auto& [fields, error] : gst)
    EXPECT_EQ(shown({parsed("$GPGST,1,2,3,4," + fields).m_position_error}), shown({error})) << fields;
}
