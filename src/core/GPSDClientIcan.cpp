// CAN-input mode: publishes the position of another unit again.

#include "core/GPSDClient.h"
#include "nmea/GnssInfo.h"
#include "publish/StatusSignals.h"
#include "wire/ServiceLog.h"
#include "wire/Stopwatch.h"

namespace ecu::koru::gpspub {

void GPSDClient::runIcan() {
  m_gnss_ican_observer->restart();
  subscribeIcanMessages();
  while (inMode()) {
    passBegins();
    const bool time_out = m_gnss_ican_observer->timeoutToSendFrame();
    if (!inMode()) break;
    const int32_t status = m_gnss_ican_observer->getGnssInfoStatus();
    reportStatus(status);
    sendFrameUsingIcan();
    if (GnssUtils::debugIt(logflag::CONNECTION)) {
      LOG.detail("runIcan time_out ", time_out, " gnss_status ", status, " m_comm_retries ", m_comm_retries);
    }
    publishModuleErrorMessage(*m_transport_client, false);
    m_comm_retries = time_out ? m_comm_retries + 1 : 0;
  }
}

void GPSDClient::sendFrameUsingIcan() {
  m_data_time_us = GnssUtils::getMicrosecDuration(0);
  // Dates are not queued while the broker is away.
  GnssInfo info = m_gnss_ican_observer->takeGnssInfo();
  if (m_transport_client->is_connected()) {
    fillTimeZone(info);
    if (m_running) m_publish_mqtt->publishFrame(m_transport_client, info, m_epoch.sentences());
  } else if (GnssUtils::debugIt(logflag::PUBLICATION)) {
    LOG.detail("DATA TO PUBLISH BUT NO MQTT ");
  }
}

}  // namespace ecu::koru::gpspub
