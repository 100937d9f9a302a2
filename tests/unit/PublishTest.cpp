#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <thread>

#include "core/SystemClock.h"
#include "nmea/GnssUtils.h"
#include "observe/TimeZoneObserver.h"
#include "platform/MemoryTransport.h"
#include "platform/Time.h"
#include "publish/GnssPublishMqtt.h"
#include "support/LogCapture.h"

using namespace ecu::koru;
using namespace ecu::koru::gpspub;

namespace {

/// What a subscriber of the position gets for each fix.
struct Bus {
  std::shared_ptr<com::MemoryTransport> memory = std::make_shared<com::MemoryTransport>();
  std::shared_ptr<com::ITransportClient> client = memory;
  GnssPublishMqtt publisher;

  pb::GnssData published(GnssInfo info, std::vector<std::string> sentences = {}) {
    publisher.publishFrame(client, info, sentences);
    const auto record = memory->records().back();
    EXPECT_EQ(record.topic, "system/gnss/data");
    return com::PbInternalMessageAdapter<pb::GnssData>(1).deserialize(record.message).body;
  }
};

GnssInfo fullFix() {
  GnssInfo info;
  GnssUtils::parseRMCString("$GPRMC,123519.50,A,4807.038,S,01131.000,W,022.4,084.4,230394,,,A*00\r\n", info);
  GnssUtils::parseGGAString("$GPGGA,123519,4807.038,S,01131.000,W,2,08,0.9,-545.4,M,46.9,M,,*00\r\n", info);
  GnssUtils::parseGSAString("$GPGSA,A,3,1,,,,,,,,,,,,1.9,1.25,1.5*00\r\n", info);
  GnssUtils::parseGSTString("$GPGST,,,,,,2.5,3.5,*00\r\n", info);
  info.m_frame_time = 987'654'321'012;
  return info;
}

}  // namespace

TEST(PublishTest, AFixCarriesWhatIsAvailableAndNothingElse) {
  Bus bus;
  pb::GnssData expected;
  expected.set_longitude(-11.516666666667F);
  expected.set_latitude(-48.1173F);
  expected.set_speed(41.4848F);
  expected.set_heading(84.4F);
  expected.set_num_satellites(8);
  expected.set_quality(2);
  for (const auto* sentence : {"$A\r\n", "$B\r\n"}) expected.add_nmea(sentence);
  expected.set_status(3);
  expected.set_fix(3);
  expected.set_altitude(-545.4F);
  expected.set_utc_time_us(764'426'119'500'000);
  expected.set_timestamp_ns(987'654'321'012);
  expected.set_accuracy(3.5F);
  expected.set_hdop(1.25F);
  expected.set_vdop(1.5F);
  EXPECT_EQ(bus.published(fullFix(), {"$A\r\n", "$B\r\n"}).SerializeAsString(), expected.SerializeAsString());
  expected.Clear();
  expected.set_status(1);
  expected.set_timestamp_ns(0);
  EXPECT_EQ(bus.published(GnssInfo()).SerializeAsString(), expected.SerializeAsString());
  const struct {
    double latitude, longitude;
    int status;
  } rows[] = {{0.0, 0.0, 2}, {-0.0, 0.0, 2}, {0.0, 100.0, 3}, {100.0, 0.0, 3}, {0.0, std::nan(""), 3}};
  for (const auto& row : rows) {  // a fix at the zero point is none
    GnssInfo info = fullFix();
    info.m_latitude = row.latitude;
    info.m_longitude = row.longitude;
    EXPECT_EQ(bus.published(info).status(), row.status) << row.latitude << ' ' << row.longitude;
  }
}

TEST(PublishTest, TheTimeZoneStaysWholeUntilTheNext) {
  TimeZoneObserver observer;
  TimeZoneObserver::TimeZoneInfo zone;
  observer.getTimeZoneInfo(zone);
  EXPECT_EQ(zone.source, pb::TimeZone::NONE);
  pb::TimeZone body;
  body.set_hour_offset(-3);
  body.set_minute_offset(-30);
  body.set_summer_time(true);
  body.set_source(pb::TimeZone::USER);
  com::Message message = com::PbInternalMessageAdapter<pb::TimeZone>(1).serialize(body).message;
  observer.message("", message);
  message.payload.clear();
  observer.message("", message);  // broken: the zone before holds
  observer.getTimeZoneInfo(zone);
  EXPECT_TRUE(zone.hour_offset == -3 && zone.minute_offset == -30 && zone.summer_time &&
              zone.source == pb::TimeZone::USER);

  constexpr int LAST = 200'000;
  std::thread delivery([&observer] {
    for (int i = 0; i <= LAST; ++i) observer.setTimeZoneInfo(i, i, i % 2 != 0, pb::TimeZone::SYSTEM);
  });
  int torn = 0;
  for (; zone.hour_offset != LAST; observer.getTimeZoneInfo(zone)) {
    const bool odd = zone.hour_offset % 2 != 0;
    if (zone.source == pb::TimeZone::SYSTEM &&
        (zone.minute_offset != zone.hour_offset || zone.summer_time != odd))
      ++torn;
  }
  delivery.join();
  EXPECT_EQ(torn, 0);
}

TEST(PublishTest, TheClockIsSetOnceAndOnlyWhenItIsWrong) {
  const struct {
    int64_t wall_s;
    int calls;
    bool enabled, refused;
    std::string record;
  } rows[] = {
      {0, 0, false, false, ""},
      {1478537338, 0, true, false, "checkSetSystemTime time already set. System time sec = 1478537338\n"},
      {1478537337, 1, true, false, "INFO koru.gpspub: Set system time to: 764426119.5\n"},
      {7, 1, true, true, "ERROR koru.gpspub: Failed to set system time to: 764426119.5\n"}};
  for (const auto& row : rows) {
    VirtualTime time(0, row.wall_s * 1'000'000);
    set_time_source(&time);
    time.refuse_set_wall(row.refused);
    test::LogCapture log;
    SystemClock clock;
    if (row.enabled) clock.enableSetting(true);
    GnssInfo info;
    info.setUtcTime(764'426'119'000'005);
    EXPECT_TRUE(clock.checkSetSystemTime(info) && clock.checkSetSystemTime(info) && clock.isSet());
    EXPECT_EQ(time.set_wall_calls(), row.calls);
    EXPECT_EQ(time.wall().tv_usec, row.calls == 1 && !row.refused ? 5 : 0);
    EXPECT_THAT(log.take(), testing::EndsWith(row.record));
  }
  set_time_source(nullptr);
}
