#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/Frames.h"
#include "support/Support.h"
#include "tools/tap/Sentences.h"
#include "tools/tap/Track.h"

using namespace ecu::koru;
using namespace testing;

namespace {

pb::GnssData valid_data() {
  pb::GnssData out;
  out.set_status(3);
  out.set_utc_time_us(1'000'000);
  out.set_latitude(-48.5F);
  out.set_longitude(10.25F);
  return out;
}

/// Writes as a file takes the pieces: each overwrites the tail before it.
class Text {
 public:
  void put(const tap::Piece& piece) {
    EXPECT_GE(piece.lasting.size() + piece.tail.size(), m_tail);
    m_text.resize(m_text.size() - m_tail);
    m_text += piece.lasting + piece.tail;
    m_tail = piece.tail.size();
  }
  [[nodiscard]] const std::string& text() const { return m_text; }

 private:
  std::string m_text;
  size_t m_tail = 0;
};

}  // namespace

TEST(TrackTest, OnlyWholeLinesAreSentences) {
  const std::pair<std::string_view, bool> rows[] = {{"$GPTXT*00\r\n", true},
                                                    {"!AIVDM,1*00\r\n", true},
                                                    {"$\r\n", true},
                                                    {"\r\n", false},
                                                    {"", false},
                                                    {"GPTXT\r\n", false},
                                                    {"$GPTXT", false},
                                                    {"$GPTXT\n", false},
                                                    {"$A\r\n$B\r\n", false},
                                                    {"$A\x1B\r\n", false},
                                                    {"$A\xC3\xA4\r\n", false},
                                                    {"$A\x7F\r\n", false}};
  for (const auto& [text, good] : rows) EXPECT_EQ(tap::is_sentence(text), good) << text;
}

// The sentence is more exact than the message, but only if it says the same.
TEST(TrackTest, PositionComesFromTheSentenceThatFits) {
  const struct {
    std::string sentence;
    double latitude, longitude;
  } rows[] = {{"$GNGGA,,4830.00060,S,01015.00060,E,1*00\r\n", -48.50001, 10.25001},
              {"$GPGGA,,4830.00060,N,01015.00060,E,1*00\r\n", -48.5, 10.25},  // on the other side
              {"$GPGGA,,4831.0,S,01015.0,E,1*00\r\n", -48.5, 10.25},
              {"$GPGGA,,4830.0,S,01015.0,X,1*00\r\n", -48.5, 10.25},
              {"$GPGGA,,,,,,0*00\r\n", -48.5, 10.25},
              {"$GPGGA,,4830.0x,S,01015.0,E,1*00\r\n", -48.5, 10.25},
              {"$GPGGA*00\r\n", -48.5, 10.25},
              {"$GPGGAX,,4830.00060,S,01015.00060,E,1*00\r\n", -48.5, 10.25},
              {"", -48.5, 10.25}};
  for (const auto& row : rows) {
    auto data = valid_data();
    data.add_nmea(row.sentence);
    const auto fix = tap::valid_fix(data);
    ASSERT_TRUE(fix);
    EXPECT_NEAR(fix->latitude_deg, row.latitude, 1e-9) << row.sentence;
    EXPECT_NEAR(fix->longitude_deg, row.longitude, 1e-9) << row.sentence;
  }
}

TEST(TrackTest, KindOfFixFollowsQualityAndDimensions) {
  const struct {
    int quality;
    unsigned dimensions;
    std::string_view kind;
  } rows[] = {{1, 3, "3d"},   {1, 2, "2d"}, {1, 1, ""},   {2, 3, "dgps"}, {4, 3, "dgps"},
              {5, 3, "dgps"}, {6, 3, ""},   {0, 3, "3d"}, {-1, 3, "3d"},  {1, 9, ""}};
  for (const auto& row : rows) {
    auto data = valid_data();
    data.set_quality(row.quality);
    data.set_fix(row.dimensions);
    EXPECT_EQ(tap::valid_fix(data)->kind, row.kind) << row.quality << ' ' << row.dimensions;
  }
}

TEST(TrackTest, ADilutionOfPrecisionThatIsNotKnownIsLeftOut) {
  for (const auto* dop : {"99.99", "-1.5", "0", "1e308", "x", ""}) {
    auto data = valid_data();
    data.set_hdop(std::strtof(dop, nullptr));
    data.set_vdop(0.5F);
    data.add_nmea(test::nmea("GNGSA,A,3,02,,,,,,,,,,,," + std::string(dop) + ",0.9,1.4"));
    const auto fix = tap::valid_fix(data);
    EXPECT_FALSE(fix->hdop) << dop;
    EXPECT_FALSE(fix->pdop) << dop;
    EXPECT_EQ(fix->vdop, 0.5) << dop;
  }
}

TEST(TrackTest, ASegmentEndsWithAGapOrAStepBack) {
  constexpr uint64_t S = 1'000'000'000;
  const struct {
    uint64_t boot_ns;
    int64_t utc_s;
    unsigned segment;
  } rows[] = {{100 * S, 50, 1}, {105 * S, 55, 1}, {110 * S + 1, 60, 2}, {111 * S, 59, 3},
              {112 * S, 59, 3}, {5 * S, 90, 4},   {6 * S, 91, 4}};
  tap::Segments segments;
  for (const auto& [boot_ns, utc_s, segment] : rows)
    EXPECT_EQ(segments.number({.utc_us = utc_s * 1'000'000}, boot_ns), segment) << utc_s;
}

// The line of a segment is written in parts, which must meet.
TEST(TrackTest, AKmlLineVisitsEveryPointOfItsSegment) {
  const auto kml = tap::track_format("kml");
  Text file;
  file.put(kml->begin());
  constexpr int POINTS = 250;
  for (int i = 0; i <= POINTS; ++i) file.put(kml->add({.longitude_deg = i * 0.1}, i < POINTS ? 1 : 2));
  const std::string& text = file.text();
  EXPECT_EQ(test::occurrences(text, "<Point>"), POINTS + 1);
  EXPECT_EQ(test::occurrences(text, "<LineString>"), 3);
  EXPECT_EQ(test::occurrences(text, "<Folder>"), 2);
  for (int i = 0; i + 1 < POINTS; ++i) {
    char leg[80];
    (void)std::snprintf(leg, sizeof leg, "\n%.7f,0.0000000\n%.7f,0.0000000\n", i * 0.1, (i + 1) * 0.1);
    EXPECT_EQ(test::occurrences(text, leg), 1) << leg;
  }
  EXPECT_THAT(text, Not(HasSubstr("\n25.0000000,0.0000000\n")));
}
