// The service on the bus, apart from the position: parameters, subscriptions, the source announcement.

#include <array>
#include <functional>
#include <utility>

#include "core/GPSDClient.h"
#include "core/SystemParameters.h"
#include "platform/com/PbInternalMessageAdapter.h"
#include "platform/com/Topics.h"
#include "platform/var/Variables.h"
#include "wire/ServiceLog.h"

namespace ecu::koru::gpspub {

namespace {

constexpr int QOS = 0;

using TopicRef = std::reference_wrapper<const std::string>;

// In the order of subscription.
const std::array<TopicRef, 3> SYSTEM_TOPICS{
    GnssObserver::m_topic_radio_silence, GnssObserver::m_topic_hw_version, GnssObserver::m_topic_gnss_source};
const std::array<TopicRef, 6> SELECTION_TOPICS{
    GnssObserver::m_topic_gnss_system_enable,  GnssObserver::m_topic_gnss_system_gps,
    GnssObserver::m_topic_gnss_system_glonass, GnssObserver::m_topic_gnss_system_galileo,
    GnssObserver::m_topic_gnss_system_beidou,  GnssObserver::m_topic_gnss_antenna_power};

const std::array<TopicRef, 5> ICAN_TOPICS{
    GnssIcanObserver::topic_vp1_base, GnssIcanObserver::topic_vp2_base, GnssIcanObserver::topic_vds_base,
    GnssIcanObserver::topic_timedate_var6, GnssIcanObserver::topic_p2c1_base};

}  // namespace

void GPSDClient::subscribeIcanMessages() {
  for (const std::string& topic : ICAN_TOPICS) {
    m_transport_client->subscribe(topic, m_gnss_ican_observer, QOS);
  }
}

void GPSDClient::subscribeObservers() {
  for (const std::string& topic : SYSTEM_TOPICS) m_transport_client->subscribe(topic, m_gnss_observer, QOS);
  m_transport_client->subscribe(TimeZoneObserver::topic_timezoneinfo, m_time_zone_observer, QOS);
}

void GPSDClient::enableLoggingControl() {
  m_transport_client->subscribe(GnssObserver::m_topic_log_config, m_gnss_observer, QOS);
}

void GPSDClient::enableMqttSystemSelection() {
  for (const std::string& topic : SELECTION_TOPICS)
    m_transport_client->subscribe(topic, m_gnss_observer, QOS);
}

void GPSDClient::unsubscribeObservers() {
  if (std::exchange(m_observers_unsubscribed, true)) return;
  for (const std::string& topic : SYSTEM_TOPICS) m_transport_client->unsubscribe(topic);
  for (const std::string& topic : SELECTION_TOPICS) m_transport_client->unsubscribe(topic);
  for (const std::string& topic : ICAN_TOPICS) m_transport_client->unsubscribe(topic);
}

void GPSDClient::unsubscribeAll() {
  unsubscribeObservers();
  m_transport_client->unsubscribe(GnssObserver::m_topic_log_config);
  m_transport_client->unsubscribe(TimeZoneObserver::topic_timezoneinfo);
}

void GPSDClient::readSysparams() {
  SystemParameterTargets targets{
      m_ublox_config.gnssSystemRequested(), m_gnss_on, true, m_simulation, 1, 1000};
  const auto parameters = var::create_sysparams_client(m_transport_client);
  applySystemParameters(parameters->get_all(), targets);
  m_gnss_on = targets.gnss_on;
  m_antenna.setGnssAntennaOn(targets.antenna_on);
  m_simulation = targets.simulation;
  m_gnss_rate_hz = targets.rate_hz;
  m_ublox_config.setMeasurementPeriod(targets.period_ms);
  m_ublox_config.setGnssSystemRequested(targets.gnss_systems);
}

bool GPSDClient::publishGnssSource() {
  if (m_hw_version != "zpt") {
    LOG.notice("GnssSource message not published becaused detected hardware ", "is not ZPT");
    return true;
  }
  pb::GnssSource source;
  source.set_source(pb::GnssSource_Source_LOCAL_RECEIVER);
  const auto result = com::PbInternalMessageAdapter<pb::GnssSource>(1).serialize(source);
  if (!result.success) {
    LOG.warning("Unable to serialize pb::GnssSource!");
    return false;
  }
  if (m_transport_client->publish(topic::GNSS_SOURCE, result.message, com::Delivery::until_sent) < 0) {
    LOG.notice("Initial GnssSource message publication failed, will ", "internally keep retrying to publish");
  } else {
    LOG.debug("Initial GnssSource message published immediately");
  }
  return true;
}

}  // namespace ecu::koru::gpspub
