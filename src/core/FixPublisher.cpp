#include "core/FixPublisher.h"

#include <utility>

#include "publish/GnssPublishCAN.h"
#include "publish/GnssPublishMqtt.h"
#include "publish/GnssPublishSystime.h"

namespace ecu::koru::gpspub {

FixPublisher::FixPublisher(std::shared_ptr<com::ITransportClient> transport, const Unit& unit)
    : m_transport(std::move(transport)),
      m_publish_mqtt(std::make_unique<GnssPublishMqtt>()),
      m_publish_can(unit.isOnVehicleBuses() ? std::make_unique<GnssPublishCAN>() : nullptr),
      m_publish_systime(unit.servesTime() ? std::make_unique<GnssPublishSystime>() : nullptr) {}

void FixPublisher::publishGnssData(GnssInfo& info, std::vector<std::string>& sentences) {
  fillTimeZone(info);
  if (m_publish_systime) m_publish_systime->publishFrame(m_transport, info, sentences);
  m_publish_mqtt->publishFrame(m_transport, info, sentences);
}

void FixPublisher::publishOnCan(GnssInfo& info, std::vector<std::string>& sentences) {
  m_publish_can->publishFrame(m_transport, info, sentences);
}

void FixPublisher::fillTimeZone(GnssInfo& info) const {
  TimeZoneObserver::TimeZoneInfo zone;
  m_time_zone_observer->getTimeZoneInfo(zone);
  const bool known = zone.source != pb::TimeZone_Source_NONE;
  info.m_local_hour_offset = known ? zone.hour_offset : OFFSET_NOT_AVAILABLE;
  info.m_local_minute_offset = known ? zone.minute_offset : OFFSET_NOT_AVAILABLE;
  info.m_summer_time = known ? static_cast<uint8_t>(zone.summer_time) : SUMMER_TIME_NOT_AVAILABLE;
}

}  // namespace ecu::koru::gpspub
