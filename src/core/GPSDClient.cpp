#include "core/GPSDClient.h"

#include <array>
#include <functional>
#include <utility>

#include "core/SystemParameters.h"
#include "platform/com/PbInternalMessageAdapter.h"
#include "platform/com/Topics.h"
#include "platform/var/Variables.h"
#include "wire/ServiceLog.h"
#include "wire/Stopwatch.h"

namespace ecu::koru::gpspub {

namespace {

constexpr int64_t GNSS_OFF_WAIT_US = 5'000'000;
constexpr int QOS = 0;

using TopicRef = std::reference_wrapper<const std::string>;

// In the order of subscription.
const std::array<TopicRef, 3> SYSTEM_TOPICS{
    GnssObserver::m_topic_radio_silence, GnssObserver::m_topic_hw_version, GnssObserver::m_topic_gnss_source};
const std::array<TopicRef, 6> SELECTION_TOPICS{
    GnssObserver::m_topic_gnss_system_enable,  GnssObserver::m_topic_gnss_system_gps,
    GnssObserver::m_topic_gnss_system_glonass, GnssObserver::m_topic_gnss_system_galileo,
    GnssObserver::m_topic_gnss_system_beidou,  GnssObserver::m_topic_gnss_antenna_power};

}  // namespace

GPSDClient::GPSDClient(std::shared_ptr<com::ITransportClient>& transportClient, const std::string& hwvariant,
                       const std::string& hasgnss, const std::string& hwversion,
                       const std::string& devicePath, UnitHardware hardware)
    : m_transport_client(transportClient),
      m_unit(hwvariant, hasgnss, hwversion, devicePath),
      m_run(m_requests, transportClient),
      m_publisher(transportClient, m_unit),
      m_receiver_mode(transportClient, m_unit, m_requests, m_run, m_publisher, std::move(hardware)),
      m_can_input_mode(transportClient, m_run, m_publisher),
      m_gnss_observer(std::make_shared<GnssObserver>(m_requests)) {
  if (!publishGnssSource()) LOG.error("Unable to publish GnssSource!");
  subscribeObservers();
}

/// Unsubscribes everything, because no observer may be called once the service is gone.
GPSDClient::~GPSDClient() {
  unsubscribeAll();
}

void GPSDClient::run() {
  m_run.reports().begins();
  while (m_run.isRunning()) {
    if (!m_run.isGnssOn()) {
      m_run.reports().gnssIsOff();
      LOG.notice("otaid_GNSSOn configured as OFF. satnavd sends no messages to MQTT.");
      m_run.waitUntil(GnssUtils::getMicrosecDuration(0) + GNSS_OFF_WAIT_US,
                      [this] { return !m_run.isRunning() || m_run.isGnssOn(); });
    } else if (!m_unit.hasReceiver()) {
      LOG.notice("m_hw_variant == ", logging::escaped(m_unit.hwVariant()), " and m_hw_hasgnss == ", "false",
                 ". satnavd gets gnss data from ican.");
      m_run.reports().modeBegins(m_can_input_mode);
      m_can_input_mode.runIcan();
    } else {
      m_run.reports().modeBegins(m_receiver_mode);
      m_receiver_mode.runUblox();
    }
  }
  m_run.reports().ends();
  unsubscribeObservers();
}

// -- On the bus

void GPSDClient::subscribeObservers() {
  for (const std::string& topic : SYSTEM_TOPICS) m_transport_client->subscribe(topic, m_gnss_observer, QOS);
  m_transport_client->subscribe(TimeZoneObserver::topic_timezoneinfo, m_publisher.timeZoneObserver(), QOS);
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
  m_can_input_mode.unsubscribeIcanMessages();
}

void GPSDClient::unsubscribeAll() {
  unsubscribeObservers();
  m_transport_client->unsubscribe(GnssObserver::m_topic_log_config);
  m_transport_client->unsubscribe(TimeZoneObserver::topic_timezoneinfo);
}

void GPSDClient::readSysparams() {
  const auto parameters = var::create_sysparams_client(m_transport_client);
  const StartParameters start = applySystemParameters(parameters->get_all(), m_requests);
  m_receiver_mode.setSimulation(start.simulation);
  m_gnss_rate_hz = start.rate_hz;
  ubloxConfig().setMeasurementPeriod(start.period_ms);
}

bool GPSDClient::publishGnssSource() {
  if (!m_unit.isOnVehicleBuses()) {
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
