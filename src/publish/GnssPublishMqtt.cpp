#include "publish/GnssPublishMqtt.h"

#include <cmath>

#include "nmea/GnssInfo.h"
#include "platform/com/PbInternalMessageAdapter.h"
#include "platform/com/Topics.h"
#include "wire/ServiceLog.h"

namespace ecu::koru::gpspub {

namespace {

constexpr uint16_t PROTOCOL_TYPE = 1;

void log(const pb::GnssData& data, const GnssInfo& info, double latitude, double longitude, int64_t utc_us) {
  LOG.detail(logflag::PUBLICATION, "Latitude = ", latitude);
  LOG.detail(logflag::PUBLICATION, "Longitude = ", longitude);
  LOG.detail(logflag::PUBLICATION, "Speed = ", info.m_speed);
  LOG.detail(logflag::PUBLICATION, "Heading = ", info.m_course);
  LOG.detail(logflag::PUBLICATION, "Quality = ", info.m_quality_indicator);
  LOG.detail(logflag::PUBLICATION, "Num satellites used = ", info.m_num_satellites);
  LOG.detail(logflag::PUBLICATION, "Altitude = ", info.m_altitude);
  LOG.detail(logflag::PUBLICATION, "Fix = ", info.m_nav_mode);
  LOG.detail(logflag::PUBLICATION, "Status = ", data.status());
  LOG.detail(logflag::PUBLICATION, "UTCTime us ", utc_us);
  LOG.detail(logflag::PUBLICATION, "Timestamp ns ", info.m_frame_time);
  LOG.detail(logflag::PUBLICATION, "Accuracy ", info.m_position_error);
  LOG.detail(logflag::PUBLICATION, "HDOP ", info.m_hdop);
  LOG.detail(logflag::PUBLICATION, "VDOP ", info.m_vdop);
  LOG.detail(logflag::PUBLICATION, "Num NMEA strings ", data.nmea_size());
}

void fillAndLog(pb::GnssData& data, GnssInfo& info, const std::vector<std::string>& sentences) {
  const double longitude = info.getLongitudeDecDeg();
  const double latitude = info.getLatitudeDecDeg();
  const int64_t utc_us = info.getUtcTimeUs();
  if (!std::isnan(longitude)) data.set_longitude(static_cast<float>(longitude));
  if (!std::isnan(latitude)) data.set_latitude(static_cast<float>(latitude));
  if (!std::isnan(info.m_speed)) data.set_speed(static_cast<float>(info.m_speed));
  if (!std::isnan(info.m_course)) data.set_heading(static_cast<float>(info.m_course));
  if (info.m_num_satellites != -1) data.set_num_satellites(info.m_num_satellites);
  if (info.m_quality_indicator != -1) data.set_quality(info.m_quality_indicator);
  for (const std::string& sentence : sentences) data.add_nmea(sentence);
  data.set_status(publishedStatus(info));
  if (info.m_nav_mode != -1) data.set_fix(static_cast<uint32_t>(info.m_nav_mode));
  if (!std::isnan(info.m_altitude)) data.set_altitude(static_cast<float>(info.m_altitude));
  if (utc_us != -1) data.set_utc_time_us(static_cast<uint64_t>(utc_us));
  data.set_timestamp_ns(static_cast<uint64_t>(info.m_frame_time));
  if (!std::isnan(info.m_position_error)) data.set_accuracy(static_cast<float>(info.m_position_error));
  if (!std::isnan(info.m_hdop)) data.set_hdop(static_cast<float>(info.m_hdop));
  if (!std::isnan(info.m_vdop)) data.set_vdop(static_cast<float>(info.m_vdop));
  log(data, info, latitude, longitude, utc_us);
}

}  // namespace

int32_t publishedStatus(const GnssInfo& info) {
  const int32_t status = info.getStatus();
  return status == 3 && info.m_latitude == 0.0 && info.m_longitude == 0.0 ? 2 : status;
}

void GnssPublishMqtt::publishFrame(std::shared_ptr<com::ITransportClient>& client, GnssInfo& info,
                                   std::vector<std::string>& nmeaSentences) {
  m_data.Clear();
  fillAndLog(m_data, info, nmeaSentences);
  com::PbInternalMessageAdapter<pb::GnssData> adapter(PROTOCOL_TYPE);
  if (!adapter.serialize(m_data, m_message)) {
    LOG.error("Unable to serialize pb::GnssData!");
    return;
  }
  client->publish(topic::GNSS_DATA, m_message);
}

}  // namespace ecu::koru::gpspub
