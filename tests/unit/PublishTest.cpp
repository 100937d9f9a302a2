#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "nmea/GnssInfo.h"
#include "nmea/GnssUtils.h"
#include "observe/GnssIcanObserver.h"
#include "platform/MemoryTransport.h"
#include "platform/PbInternalMessageAdapter.h"
#include "platform/Signals.h"
#include "platform/Topics.h"
#include "proto/nvxproto.pb.h"
#include "publish/GnssPublishCAN.h"
#include "publish/GnssPublishMqtt.h"
#include "support/Frames.h"
#include "support/LogCapture.h"
#include "support/Support.h"

using namespace ecu::koru;
using namespace ecu::koru::gpspub;
using test::bytes;

namespace {

constexpr double INFINITE = std::numeric_limits<double>::infinity();

/// What varies; the rest of a fix is 12:35:01 on 23 March 2026.
struct Values {
  double latitude, longitude;  // as NMEA writes them
  int nav_mode, quality, satellites;
  double speed, course, altitude, error, dop;
  uint8_t summer_time;
  int hour_offset, minute_offset;
};

GnssInfo fixOf(const Values& values) {
  GnssInfo info;
  info.m_status = STATUS_VALID;
  info.m_latitude = values.latitude;
  info.m_longitude = values.longitude;
  info.m_nav_mode = values.nav_mode;
  info.m_quality_indicator = values.quality;
  info.m_num_satellites = values.satellites;
  info.m_speed = values.speed;
  info.m_course = values.course;
  info.m_altitude = values.altitude;
  info.m_position_error = values.error;
  info.m_hdop = info.m_vdop = info.m_pdop = values.dop;
  info.m_summer_time = values.summer_time;
  info.m_utc_tm.tm_sec = 1;
  info.m_utc_tm.tm_min = 35;
  info.m_utc_tm.tm_hour = 12;
  info.m_utc_tm.tm_mday = 23;
  info.m_utc_tm.tm_mon = 2;
  info.m_utc_tm.tm_year = 126;
  info.m_local_hour_offset = values.hour_offset;
  info.m_local_minute_offset = values.minute_offset;
  info.m_frame_time = 0x0102030405060708;
  info.m_receiver_flag = 1;
  return info;
}

GnssInfo ordinaryFix() {
  GnssInfo info = fixOf({4807.038, 1131.0, 3, 1, 9, 41.4848, 84.4, 545.4, 3.1, 0, 0, 1, 0});
  info.m_hdop = 1.18;
  info.m_vdop = 1.54;
  info.m_pdop = 1.94;
  return info;
}

/// The lowest value of each signal that a fix can have, and the last second of 2050 in the far west.
GnssInfo lowestFix() {
  GnssInfo info = fixOf({-9000.0, -18000.0, 1, 0, 0, -0.0, -0.0, -2500, 0, 0, 0, -12, -30});
  info.m_utc_tm.tm_sec = info.m_utc_tm.tm_min = 59;
  info.m_utc_tm.tm_hour = 23;
  info.m_utc_tm.tm_mday = 31;
  info.m_utc_tm.tm_mon = 11;
  info.m_utc_tm.tm_year = 150;
  return info;
}

/// The highest valid raw values.
GnssInfo highestFix() {
  return fixOf({9000.0, 18000.0, 2, 6, 250, 64255.0 / 256, 359.99, 5531.875, 125, 25.04, 1, 14, 45});
}

/// Beyond them.
GnssInfo excessiveFix() {
  GnssInfo info = fixOf({-0.0, INFINITE, 4, 5, 251, 251, -1, 5532, 1e300, 99.9, SUMMER_TIME_NOT_AVAILABLE,
                         OFFSET_NOT_AVAILABLE, 30});
  info.m_pdop = 25.1;
  info.m_utc_tm.tm_year = 400;
  return info;
}

GnssInfo untrustedFix() {
  GnssInfo info = ordinaryFix();
  info.m_receiver_flag = 0;
  return info;
}

GnssInfo undatedFix() {
  GnssInfo info = ordinaryFix();
  info.m_utc_tm = {};
  return info;
}

struct Golden {
  const char* what;
  GnssInfo fix;
  const char *vp1, *p2c1, *vp2, *vds, *td, *stamp;
};

const char* const NONE = "FF FF FF FF FF FF FF FF";
const char* const STAMP = "08 07 06 05 04 03 02 01";

std::vector<Golden> goldenFrames() {
  return {{"ordinary", ordinaryFix(), "08 93 D9 99 CB C2 08 84", "02 01 00 2B 5F 06 FF FF",
           "09 0C 0F 13 FF FF FF FF", "33 2A 7C 29 FF FF 2B 5F", "04 23 0C 03 5C 29 7D 7E", STAMP},
          {"lowest", lowestFix(), "00 8C 86 47 00 A3 E1 11", "00 00 00 00 00 00 FF FF",
           "00 00 00 00 FF FF FF FF", "00 00 00 00 FF FF 00 00", "EC 3B 17 0C 7C 41 5F 71", STAMP},
          {"highest", highestFix(), "00 5E D0 B2 00 47 75 E8", "01 03 01 FF FA FA FF FF",
           "FA FA FA FA FF FF FF FF", "FF B3 FF FA FF FF FF FA", "04 23 0C 03 5C 29 AA 8B", STAMP},
          {"excessive", excessiveFix(), "00 75 2B 7D FF FF FF FF", "FF FF 03 FF FF FF FF FF", NONE, NONE,
           "04 23 0C 03 5C FF FF FF", STAMP},
          {"untrusted", untrustedFix(), NONE, "02 01 FF FF FF FF FF FF", "09 FF FF FF FF FF FF FF", NONE,
           NONE, STAMP},
          {"undated", undatedFix(), NONE, "02 01 FF FF FF FF FF FF", "09 FF FF FF FF FF FF FF", NONE, NONE,
           STAMP},
          {"nothing", GnssInfo(), NONE, NONE, NONE, NONE, NONE, "00 00 00 00 00 00 00 00"}};
}

/// What a subscriber of the position gets.
pb::GnssData published(GnssInfo info) {
  const auto memory = std::make_shared<com::MemoryTransport>();
  std::shared_ptr<com::ITransportClient> client = memory;
  std::vector<std::string> no_sentences;
  GnssPublishMqtt().publishFrame(client, info, no_sentences);
  return com::PbInternalMessageAdapter<pb::GnssData>(1).deserialize(memory->records().at(0).message).body;
}

}  // namespace

// The bytes of every signal group for a table of fixes, worked out by hand: raw = (value - offset) /
// resolution, lowest byte first, all ones where there is no value.
TEST(PublishCan, GoldenFrames) {
  const test::LogCapture log;
  for (Golden& golden : goldenFrames()) {
    auto bus = std::make_shared<com::MemoryTransport>();
    std::shared_ptr<com::ITransportClient> client = bus;
    std::vector<std::string> sentences;
    GnssPublishCAN().publishFrame(client, golden.fix, sentences);
    const std::vector<std::pair<std::string, std::string>> expected{
        {"rt/j1939can/tx/vp1_local", bytes(golden.vp1)},
        {"rt/oemcan/tx/p2c1_local", bytes(golden.p2c1)},
        {"rt/j1939can/tx/vp2_local", bytes(golden.vp2)},
        {"rt/j1939can/tx/vds_local", bytes(golden.vds)},
        {"rt/j1939can/tx/td_local", bytes(golden.td)},
        {"rt/system/gnss_timestamp_ns", bytes(golden.stamp)}};
    std::vector<std::pair<std::string, std::string>> sent;
    for (const auto& [topic, message, at_ns] : bus->records())
      sent.emplace_back(topic,
                        com::PbInternalMessageAdapter<pb::RtSignal>(1).deserialize(message).body.value());
    EXPECT_EQ(sent, expected) << golden.what;
  }
}

TEST(PublishTest, AFixAtTheZeroPointIsNone) {
  const std::tuple<double, double, int> rows[] = {
      {0.0, 0.0, 2}, {-0.0, 0.0, 2}, {0.0, 100.0, 3}, {100.0, 0.0, 3}, {0.0, std::nan(""), 3}};
  for (const auto& [latitude, longitude, status] : rows) {
    GnssInfo info = ordinaryFix();
    info.m_latitude = latitude;
    info.m_longitude = longitude;
    EXPECT_EQ(published(info).status(), status) << latitude << ' ' << longitude;
  }
}

TEST(PublishCan, GroupRecordsStandBehindTheirBits) {
  const char* const built[] = {" seconds 1\n",
                               " localhouroffset 1\n",
                               " seconds 0xFF \n",
                               " minutes 0xFF  hours 0xFF  day 0xFF \n",
                               " month 0xFF year 0xFF\n",
                               "DEBUG koru.gpspub: Unable to set_signal_scaled_value on "};
  std::shared_ptr<com::ITransportClient> client = std::make_shared<com::MemoryTransport>();
  std::vector<std::string> sentences;
  for (const unsigned flags : {0x10000U, ~0x10000U, 0U}) {
    GnssUtils::setLogFlags(flags);
    test::LogCapture log;
    for (GnssInfo fix : {ordinaryFix(), undatedFix(), excessiveFix(), excessiveFix()}) {
      GnssPublishCAN().publishFrame(client, fix, sentences);
    }
    GnssUtils::setLogFlags(0);
    const std::string text = log.take();
    for (const char* record : built)
      EXPECT_EQ(text.find(record) != std::string::npos, flags == 0x10000) << record;
    EXPECT_EQ(text.find(" getLatitudeDecDeg() 0xFFFFFFFF\n") != std::string::npos, flags == ~0x10000U);
  }
}

/// The database has one message with one signal; what is logged when it is sent and when it comes.
TEST(PublishCan, SignalsThatTheDatabaseLacksAreNamed) {
  const struct {
    std::string present, tx, rx;
    bool (*create)(const GnssInfo&, com::Message&);
    std::string not_set, invalid;
  } rows[] = {
      {"latitude", topic::VP1_TX, topic::VP1_RX, GnssPublishCAN::create_VP1_Base_Message,
       "Unable to set_signal_data on longitude\n",
       "Invalid signal longitude for topic 'rt/j1939can/rx/vp1_fb'. Request failed\n"},
      {"altitude", topic::VDS_TX, topic::VDS_RX, GnssPublishCAN::create_VDS_Base_Message,
       "Unable to set_signal_data on pitch\n",
       "Invalid signal navigationbasedvehiclespeed for topic 'rt/j1939can/rx/vds_fb'. Request failed\n"}};
  auto& adapter = rt::SignalAdapter::instance();
  for (const auto& row : rows) {
    const test::TempDir folder;
    test::LogCapture log("WARNING");
    EXPECT_TRUE(adapter.load_database(
        folder.write("one.dbc", "BO_ 1 M: 8 A\nSG_ " + row.present +
                                    " : 0|8@1+ (1,0) [0|0] \"\" A\nBA_ \"TxTopic\" BO_ 1 \"" + row.tx +
                                    "\";\nBA_ \"RxTopic\" BO_ 1 \"" + row.rx + "\";")));
    com::Message message;
    EXPECT_TRUE(row.create(GnssInfo(), message));
    rt::SignalGroup group = adapter.create_sg(row.rx);
    EXPECT_TRUE(group.set_signal_data(row.present, {1}) && adapter.pack(group, message));
    GnssIcanObserver().message(row.rx, message);
    EXPECT_FALSE(adapter.load_database(folder / "none"));  // the built-in one again
    EXPECT_THAT(log.take(), testing::AllOf(testing::HasSubstr(row.not_set), testing::HasSubstr(row.invalid)));
  }
}
