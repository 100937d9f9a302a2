#include "publish/GnssPublishCAN.h"

#include <array>

#include "nmea/GnssInfo.h"
#include "nmea/SignalRows.h"
#include "platform/com/Topics.h"
#include "platform/rt/Signals.h"
#include "publish/TimeDate.h"
#include "wire/ServiceLog.h"

namespace ecu::koru::gpspub {

namespace {

constexpr int32_t STATUS_DATED_FIX = 3;

double whenFix(const GnssInfo& info, double value) {
  return info.getStatus() == STATUS_DATED_FIX ? value : SIGNAL_NOT_AVAILABLE;
}

double code(int32_t value) {
  return value == -1 ? SIGNAL_NOT_AVAILABLE : value;
}

double never(const GnssInfo& /*info*/) {
  return SIGNAL_NOT_AVAILABLE;
}

const std::array<SignalRow, 2> VP1_ROWS{
    {{"latitude", "getLatitudeDecDeg()",
      [](const GnssInfo& info) { return whenFix(info, info.getLatitudeDecDeg()); }},
     {"longitude", "getLongitudeDecDeg()",
      [](const GnssInfo& info) { return whenFix(info, info.getLongitudeDecDeg()); }}}};

// The number of satellites used is sent as the number in view.
const std::array<SignalRow, 5> VP2_ROWS{{{"totalnumberofsatellitesinview", "getNumSatellites()",
                                          [](const GnssInfo& info) { return code(info.m_num_satellites); }},
                                         {"horizontaldilutionofprecision", "getHdop()",
                                          [](const GnssInfo& info) { return whenFix(info, info.m_hdop); }},
                                         {"verticaldilutionofprecision", "getVdop()",
                                          [](const GnssInfo& info) { return whenFix(info, info.m_vdop); }},
                                         {"positiondilutionofprecision", "getPdop()",
                                          [](const GnssInfo& info) { return whenFix(info, info.m_pdop); }},
                                         {"timedilutionofprecision", "getTdop()", never}}};

const std::array<SignalRow, 4> VDS_ROWS{
    {{"compassbearing", "getHeadingDecDeg()",
      [](const GnssInfo& info) { return whenFix(info, info.m_course); }},
     {"navigationbasedvehiclespeed", "getSpeedOverGroundkmhr()",
      [](const GnssInfo& info) { return whenFix(info, info.m_speed); }},
     {"altitude", "getAltitude()", [](const GnssInfo& info) { return whenFix(info, info.m_altitude); }},
     {"pitch", "getPitchGnss()", never}}};

const std::array<SignalRow, 7> P2C1_ROWS{
    {{"navmodegnss_base", "getNavModeGnss()",
      [](const GnssInfo& info) { return code(info.getNavModeGnss()); }},
     {"qualityindicatorgnss_base", "getQualityIndicatorGnss()",
      [](const GnssInfo& info) { return code(info.getQualityIndicatorGnss()); }},
     {"summertimegps_base", "getSummerTime()",
      [](const GnssInfo& info) { return whenFix(info, info.m_summer_time); }},
     {"vehposwgs84altitudegnss_base", "getAltitude()",
      [](const GnssInfo& info) { return whenFix(info, info.m_altitude); }},
     {"vehposprecisiongnss_base", "getAccuracy()",
      [](const GnssInfo& info) { return whenFix(info, info.m_position_error); }},
     // Neither is ever measured.
     {"gnsspositionage_base", "getPositionAge()", never},
     {"timesynchdelaygnss_base", "getTimeSynchDelay()", never}}};

bool createGroupMessage(const std::string& topic, std::span<const SignalRow> rows, const GnssInfo& info,
                        com::Message& out) {
  rt::SignalGroup group = rt::SignalAdapter::instance().create_sg(topic);
  if (!group.is_valid()) {
    LOG.error("Unable to create signal group for ", topic, " topic");
    return false;
  }
  fillSignals(group, rows, info);
  return packGroup(group, topic, out);
}

void publishGroup(com::ITransportClient& client, const std::string& topic,
                  bool (*create)(const GnssInfo&, com::Message&), const GnssInfo& info) {
  com::Message message;
  if (create(info, message)) client.publish(topic, message);
}

}  // namespace

bool GnssPublishCAN::create_VP1_Base_Message(const GnssInfo& info, com::Message& out) {
  return createGroupMessage(topic::VP1_TX, VP1_ROWS, info, out);
}

bool GnssPublishCAN::create_VP2_Base_Message(const GnssInfo& info, com::Message& out) {
  return createGroupMessage(topic::VP2_TX, VP2_ROWS, info, out);
}

bool GnssPublishCAN::create_VDS_Base_Message(const GnssInfo& info, com::Message& out) {
  return createGroupMessage(topic::VDS_TX, VDS_ROWS, info, out);
}

bool GnssPublishCAN::create_P2C1_Base_Message(const GnssInfo& info, com::Message& out) {
  return createGroupMessage(topic::P2C1_TX, P2C1_ROWS, info, out);
}

bool GnssPublishCAN::create_gnss_timestamp_ns(const GnssInfo& info, com::Message& out) {
  constexpr const char* SIGNAL = "timestamp_ns";
  rt::SignalGroup group = rt::SignalAdapter::instance().create_sg(topic::GNSS_TIMESTAMP);
  if (!group.is_valid()) {
    LOG.error("Unable to create signal group for ", topic::GNSS_TIMESTAMP, " topic");
    return false;
  }
  std::array<uint8_t, sizeof info.m_frame_time> data{};
  auto rest = static_cast<uint64_t>(info.m_frame_time);
  for (uint8_t& byte : data) {
    byte = static_cast<uint8_t>(rest);
    rest >>= 8;
  }
  if (!group.set_signal_data(SIGNAL, data)) LOG.error("Unable to set_signal_data for ", SIGNAL);
  return packGroup(group, topic::GNSS_TIMESTAMP, out);
}

void GnssPublishCAN::publish_VP1_Base(std::shared_ptr<com::ITransportClient>& client, const GnssInfo& info) {
  publishGroup(*client, topic::VP1_TX, create_VP1_Base_Message, info);
}

void GnssPublishCAN::publish_VP2_Base(std::shared_ptr<com::ITransportClient>& client, const GnssInfo& info) {
  publishGroup(*client, topic::VP2_TX, create_VP2_Base_Message, info);
}

void GnssPublishCAN::publish_VDS_Base(std::shared_ptr<com::ITransportClient>& client, const GnssInfo& info) {
  publishGroup(*client, topic::VDS_TX, create_VDS_Base_Message, info);
}

void GnssPublishCAN::publish_P2C1_Base(std::shared_ptr<com::ITransportClient>& client, const GnssInfo& info) {
  publishGroup(*client, topic::P2C1_TX, create_P2C1_Base_Message, info);
}

void GnssPublishCAN::publish_timeDate_Var6(std::shared_ptr<com::ITransportClient>& client,
                                           const GnssInfo& info) {
  com::Message message;
  if (GnssUtils::create_Timedate_Var6_Message(topic::TD_TX, info, message)) {
    client->publish(topic::TD_TX, message);
  }
}

void GnssPublishCAN::publish_gnss_timestamp_ns(std::shared_ptr<com::ITransportClient>& client,
                                               const GnssInfo& info) {
  publishGroup(*client, topic::GNSS_TIMESTAMP, create_gnss_timestamp_ns, info);
}

void GnssPublishCAN::publishFrame(std::shared_ptr<com::ITransportClient>& client, GnssInfo& info,
                                  std::vector<std::string>& /*nmeaSentences*/) {
  if (info.m_receiver_flag == 0 && info.getStatus() > 2) info.m_status = STATUS_WARNING;
  publish_VP1_Base(client, info);
  publish_P2C1_Base(client, info);
  publish_VP2_Base(client, info);
  publish_VDS_Base(client, info);
  publish_timeDate_Var6(client, info);
  publish_gnss_timestamp_ns(client, info);
}

}  // namespace ecu::koru::gpspub
