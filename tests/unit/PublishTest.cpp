#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

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

/// What a subscriber of the position gets.
pb::GnssData published(GnssInfo info) {
  const auto memory = std::make_shared<com::MemoryTransport>();
  std::shared_ptr<com::ITransportClient> client = memory;
  std::vector<std::string> no_sentences;
  GnssPublishMqtt().publishFrame(client, info, no_sentences);
  return com::PbInternalMessageAdapter<pb::GnssData>(1).deserialize(memory->records().at(0).message).body;
}

}  // namespace

TEST(PublishTest, AFixAtTheZeroPointIsNone) {
  const struct {
    double latitude, longitude;
    int status;
  } rows[] = {{0.0, 0.0, 2}, {-0.0, 0.0, 2}, {0.0, 100.0, 3}, {100.0, 0.0, 3}, {0.0, std::nan(""), 3}};
  for (const auto& row : rows) {
    GnssInfo info;
    GnssUtils::parseRMCString("$GPRMC,123519.50,A,4807.038,S,01131.000,W,022.4,084.4,230394,,,A*00\r\n",
                              info);
    info.m_latitude = row.latitude;
    info.m_longitude = row.longitude;
    EXPECT_EQ(published(info).status(), row.status) << row.latitude << ' ' << row.longitude;
  }
}

TEST(PublishTest, ABrokenTimeZoneLeavesTheOneBefore) {
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
}
