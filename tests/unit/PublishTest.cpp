#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <tuple>

#include "nmea/GnssInfo.h"
#include "platform/com/MemoryTransport.h"
#include "publish/GnssPublishCAN.h"
#include "publish/GnssPublishMqtt.h"
#include "support/Envelope.h"
#include "support/Frames.h"
#include "support/LogCapture.h"
#include "wire/ServiceLog.h"

using namespace ecu::koru;
using namespace ecu::koru::gpspub;
using test::bytes;

namespace {

constexpr double INFINITE = std::numeric_limits<double>::infinity();

constexpr std::tm NOON{1, 35, 12, 23, 2, 126, 0, 0, 0, 0, nullptr};  // 12:35:01 on 23 March 2026
constexpr std::tm LAST_OF_2050{59, 59, 23, 31, 11, 150, 0, 0, 0, 0, nullptr};
constexpr std::tm FAR_AWAY{1, 35, 12, 23, 2, 400, 0, 0, 0, 0, nullptr};

/// Returns a fix with these values. The position is in the format of NMEA.
template <typename... Values>
GnssInfo fixOf(const std::tm& utc, Values... values) {
  GnssInfo info;
  std::tie(info.m_latitude, info.m_longitude, info.m_nav_mode, info.m_quality_indicator,
           info.m_num_satellites, info.m_speed, info.m_course, info.m_altitude, info.m_position_error,
           info.m_hdop, info.m_vdop, info.m_pdop, info.m_summer_time, info.m_local_hour_offset,
           info.m_local_minute_offset) = std::tuple(values...);
  info.m_status = STATUS_VALID;
  info.m_utc_tm = utc;
  info.m_frame_time = 0x0102030405060708;
  info.m_receiver_flag = 1;
  return info;
}

GnssInfo ordinaryFix(const std::tm& utc = NOON, uint8_t receiver_flag = 1) {
  GnssInfo info = fixOf(utc, 4807.038, 1131.0, 3, 1, 9, 41.4848, 84.4, 545.4, 3.1, 1.18, 1.54, 1.94, 0, 1, 0);
  info.m_receiver_flag = receiver_flag;
  return info;
}

/// Returns a fix whose values exceed the highest valid raw values.
GnssInfo excessiveFix() {
  return fixOf(FAR_AWAY, -0.0, INFINITE, 4, 5, 251, 251.0, -1.0, 5532.0, 1e300, 99.9, 99.9, 25.1,
               SUMMER_TIME_NOT_AVAILABLE, OFFSET_NOT_AVAILABLE, 30);
}

}  // namespace

// The bytes of every signal group for a table of fixes, calculated by hand: raw = (value - offset) /
// resolution, lowest byte first, all ones if there is no value.
TEST(PublishCan, GoldenFrames) {
  using Sent = std::vector<std::pair<std::string, std::string>>;
  test::LogCapture log("WARNING");
  constexpr const char* NONE = "FF FF FF FF FF FF FF FF";
  constexpr const char* STAMP = "08 07 06 05 04 03 02 01";
  // The lowest value of each signal that a fix can have, in the far west, and the highest valid raw values.
  const GnssInfo lowest =
      fixOf(LAST_OF_2050, -9000.0, -18000.0, 1, 0, 0, -0.0, -0.0, -2500, 0, 0, 0, 0, 0, -12, -30);
  const GnssInfo highest = fixOf(NOON, 9000.0, 18000.0, 2, 6, 250, 64255.0 / 256, 359.99, 5531.875, 125,
                                 25.04, 25.04, 25.04, 1, 14, 45);
  struct {
    const char* what;
    GnssInfo fix;
    const char *vp1, *p2c1, *vp2, *vds, *td, *stamp;
  } rows[] = {{"ordinary", ordinaryFix(), "08 93 D9 99 CB C2 08 84", "02 01 00 2B 5F 06 FF FF",
               "09 0C 0F 13 FF FF FF FF", "33 2A 7C 29 FF FF 2B 5F", "04 23 0C 03 5C 29 7D 7E", STAMP},
              {"lowest", lowest, "00 8C 86 47 00 A3 E1 11", "00 00 00 00 00 00 FF FF",
               "00 00 00 00 FF FF FF FF", "00 00 00 00 FF FF 00 00", "EC 3B 17 0C 7C 41 5F 71", STAMP},
              {"highest", highest, "00 5E D0 B2 00 47 75 E8", "01 03 01 FF FA FA FF FF",
               "FA FA FA FA FF FF FF FF", "FF B3 FF FA FF FF FF FA", "04 23 0C 03 5C 29 AA 8B", STAMP},
              {"excessive", excessiveFix(), "00 75 2B 7D FF FF FF FF", "FF FF 03 FF FF FF FF FF", NONE, NONE,
               "04 23 0C 03 5C FF FF FF", STAMP},
              {"untrusted", ordinaryFix(NOON, 0), NONE, "02 01 FF FF FF FF FF FF", "09 FF FF FF FF FF FF FF",
               NONE, NONE, STAMP},
              {"undated", ordinaryFix({}), NONE, "02 01 FF FF FF FF FF FF", "09 FF FF FF FF FF FF FF", NONE,
               NONE, STAMP},
              {"nothing", GnssInfo(), NONE, NONE, NONE, NONE, NONE, "00 00 00 00 00 00 00 00"}};
  for (auto& golden : rows) {
    auto bus = std::make_shared<com::MemoryTransport>();
    std::shared_ptr<com::ITransportClient> client = bus;
    std::vector<std::string> sentences;
    GnssPublishCAN().publishFrame(client, golden.fix, sentences);
    const Sent expected{{"rt/j1939can/tx/vp1_local", bytes(golden.vp1)},
                        {"rt/oemcan/tx/p2c1_local", bytes(golden.p2c1)},
                        {"rt/j1939can/tx/vp2_local", bytes(golden.vp2)},
                        {"rt/j1939can/tx/vds_local", bytes(golden.vds)},
                        {"rt/j1939can/tx/td_local", bytes(golden.td)},
                        {"rt/system/gnss_timestamp_ns", bytes(golden.stamp)}};
    Sent sent;
    for (const auto& [topic, message, at_ns] : bus->records())
      sent.emplace_back(topic, test::bodyOf(message).value());
    EXPECT_EQ(sent, expected) << golden.what;
  }
  const std::string text = log.take();
  EXPECT_EQ(std::ranges::count(text, '\n'), 10) << text;  // one for each signal that is out of range
}

TEST(PublishTest, AFixAtTheZeroPointIsNone) {
  const std::tuple<double, double, int> rows[] = {
      {0.0, 0.0, 2}, {-0.0, 0.0, 2}, {0.0, 100.0, 3}, {100.0, 0.0, 3}, {0.0, std::nan(""), 3}};
  for (const auto& [latitude, longitude, status] : rows) {
    GnssInfo info = ordinaryFix();
    info.m_latitude = latitude;
    info.m_longitude = longitude;
    const auto memory = std::make_shared<com::MemoryTransport>();
    std::shared_ptr<com::ITransportClient> client = memory;
    std::vector<std::string> no_sentences;
    GnssPublishMqtt().publishFrame(client, info, no_sentences);
    EXPECT_EQ(test::bodyOf<pb::GnssData>(memory->records().at(0).message).status(), status)
        << latitude << ' ' << longitude;
  }
}
