#include "core/GPSDClient.h"

#include <algorithm>
#include <utility>

#include "input/SPI.h"
#include "input/SerialInput.h"
#include "nmea/GnssInfo.h"
#include "platform/base/Time.h"
#include "publish/GnssPublishCAN.h"
#include "publish/GnssPublishMqtt.h"
#include "publish/GnssPublishSystime.h"
#include "wire/ServiceLog.h"
#include "wire/Stopwatch.h"

namespace ecu::koru::gpspub {

namespace {

constexpr int64_t GNSS_OFF_WAIT_US = 5'000'000;
constexpr int64_t WAIT_SLICE_US = 100'000;

std::unique_ptr<IGnssInput> createInput(const std::string& devicePath) {
  std::unique_ptr<IGnssInput> input;
  if (devicePath == SPI::DEVICE) {
    input = std::make_unique<SPI>();
  } else {
    input = std::make_unique<SerialInput>();
  }
  input->setGnssDeviceName(devicePath);
  return input;
}

}  // namespace

GPSDClient::GPSDClient(std::shared_ptr<com::ITransportClient>& transportClient, const std::string& hwvariant,
                       const std::string& hasgnss, const std::string& hwversion,
                       const std::string& devicePath, UnitHardware hardware)
    : m_transport_client(transportClient),
      m_hw_variant(hwvariant),
      m_hw_version(hwversion),
      m_hw_hasgnss(hasgnss == "true"),
      m_device_path(devicePath),
      m_input(hardware.input ? std::move(hardware.input) : createInput(devicePath)),
      m_epoch(*this),
      m_ublox_config(*m_input, ReceiverLines(hwversion, hardware.gpio_root)),
      m_antenna(m_ublox_config, *this, transportClient),
      m_ubx_reception(*m_input, m_ublox_config, m_antenna, *this),
      m_publish_mqtt(std::make_unique<GnssPublishMqtt>()),
      m_publish_can(hwversion == "zpt" ? std::make_unique<GnssPublishCAN>() : nullptr),
      m_publish_systime(hwversion == "qrx" && m_hw_hasgnss ? std::make_unique<GnssPublishSystime>()
                                                           : nullptr),
      m_gnss_observer(std::make_shared<GnssObserver>(static_cast<IGnssControl&>(*this))),
      m_gnss_ican_observer(std::make_shared<GnssIcanObserver>([this] { return inMode(); })),
      m_time_zone_observer(std::make_shared<TimeZoneObserver>()) {
  if (!publishGnssSource()) LOG.error("Unable to publish GnssSource!");
  subscribeObservers();
}

/// No observer may be called after this.
GPSDClient::~GPSDClient() {
  unsubscribeAll();
}

void GPSDClient::run() {
  m_service_manager->ready();
  while (m_running) {
    if (!m_gnss_on) {
      m_service_manager->status("GNSS is switched off");
      LOG.notice("otaid_GNSSOn configured as OFF. satnavd sends no messages to MQTT.");
      waitWhileRunning(GNSS_OFF_WAIT_US);
    } else if (!m_hw_hasgnss) {
      LOG.notice("m_hw_variant == ", logging::escaped(m_hw_variant), " and m_hw_hasgnss == ", "false",
                 ". satnavd gets gnss data from ican.");
      runIcan();
    } else {
      runUblox();
    }
  }
  m_service_manager->stopping();
  unsubscribeObservers();
}

void GPSDClient::reportStatus(int32_t gnss_status) {
  std::string_view text = "no fix";
  if (!m_transport_client->is_connected()) {
    text = "no broker";
  } else if (m_hw_hasgnss && m_connection_state != ConnectionState::CONNECTED) {
    text = "no receiver";
  } else if (gnss_status > 1) {
    text = gnss_status == 3 ? "valid fix" : "fix with a warning";
  }
  m_service_manager->status(text);
}

void GPSDClient::stop() {
  m_running = false;
  m_gnss_on = false;
}

void GPSDClient::passBegins() const {
  m_service_manager->progress();
  logging::tell_kept_back();
}

void GPSDClient::waitWhileRunning(int64_t us) const {
  const int64_t end = GnssUtils::getMicrosecDuration(0) + us;
  for (int64_t left = us; m_running && left > 0; left = end - GnssUtils::getMicrosecDuration(0)) {
    passBegins();
    time_source().sleep_ns(std::min(left, WAIT_SLICE_US) * 1000);
  }
}

bool GPSDClient::connect() {
  m_connect_time_us = GnssUtils::getMicrosecDuration(0);
  const bool connected = m_input->connect();
  m_connection_state = connected ? ConnectionState::CONNECTED : ConnectionState::NOT_CONNECTED;
  return connected;
}

void GPSDClient::disconnect() {
  m_input->disconnect();
  m_connection_state = ConnectionState::NOT_CONNECTED;
  m_ublox_config.unconfirmPort();
  m_ublox_config.restart();
}

bool GPSDClient::isConnected() {
  return m_input->isConnected();
}

bool GPSDClient::setBaudRate(uint32_t baud) {
  m_baud_rate = baud;
  m_ubx_reception.setBaudRate(baud);
  return m_input->setBaudRate(baud);
}

void GPSDClient::disableHardwareInit() {
  m_disable_hw_init = true;
  m_ublox_config.disableHardwareInit();
}

void GPSDClient::publishGnssData() {
  reportStatus(m_epoch.info().getStatus());
  if (m_transport_client->is_connected()) {
    fillTimeZone(m_epoch.info());
    if (m_publish_systime) {
      m_publish_systime->publishFrame(m_transport_client, m_epoch.info(), m_epoch.sentences());
    }
    m_publish_mqtt->publishFrame(m_transport_client, m_epoch.info(), m_epoch.sentences());
  } else if (GnssUtils::debugIt(logflag::PUBLICATION)) {
    LOG.detail("GPSDClient::publishGnssData - DATA TO PUBLISH BUT NO MQTT");
  }
  m_epoch.rotate(m_ublox_config.receiverFlag());
}

void GPSDClient::fillTimeZone(GnssInfo& info) const {
  TimeZoneObserver::TimeZoneInfo zone;
  m_time_zone_observer->getTimeZoneInfo(zone);
  const bool known = zone.source != pb::TimeZone_Source_NONE;
  info.m_local_hour_offset = known ? zone.hour_offset : OFFSET_NOT_AVAILABLE;
  info.m_local_minute_offset = known ? zone.minute_offset : OFFSET_NOT_AVAILABLE;
  info.m_summer_time = known ? static_cast<uint8_t>(zone.summer_time) : SUMMER_TIME_NOT_AVAILABLE;
}

void GPSDClient::checkSetSystemTime() {
  m_system_clock.checkSetSystemTime(m_epoch.info());
}

}  // namespace ecu::koru::gpspub
