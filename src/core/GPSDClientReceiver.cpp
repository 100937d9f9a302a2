// Receiver mode: from the bytes of the unit's own receiver to finished fixes.

#include <algorithm>
#include <utility>

#include "core/GPSDClient.h"
#include "input/SPI.h"
#include "nmea/GnssInfo.h"
#include "platform/base/Time.h"
#include "publish/StatusSignals.h"
#include "wire/HexDump.h"
#include "wire/ServiceLog.h"
#include "wire/Stopwatch.h"

namespace ecu::koru::gpspub {

namespace {

constexpr int READ_TIMEOUT_US = 100'000;
constexpr int64_t FRAME_US = 1'000'000;
constexpr int64_t REOPEN_US = 1'000'000;
// A receiver that has just powered up talks at its default rate.
constexpr int64_t POWER_UP_NS = 139'999'999'999;
constexpr unsigned POWER_UP_BAUD = 9600;
constexpr unsigned USUAL_BAUD = 38400;
constexpr std::string_view SERIAL_DEVICE = "/dev/ttyFP3";
constexpr unsigned char UBX_SYNC = 0xB5;
constexpr int64_t SEQUENCE_SILENCE_US = 15'000'000;
constexpr int64_t NEVER = 0;

}  // namespace

void GPSDClient::runUblox() {
  logInputWarnings();
  enterReceiverLoop();
  while (inMode()) {
    passBegins();
    if (m_input->isConnected()) {
      receive();
    } else {
      connectOrWait();
    }
  }
  leaveReceiverLoop();
}

void GPSDClient::logInputWarnings() const {
  if (m_disable_hw_init) LOG.warning("Hardware init disabled. Probably simulated input.");
  if (m_device_path != SERIAL_DEVICE && m_device_path != SPI::DEVICE) {
    LOG.warning(
        m_simulation ? "EHorizon sim active. Hardware port redirected to " : "Hardware port redirected to ",
        logging::escaped(m_device_path), ". Probably simulated input.");
  }
  if (m_baud_rate != USUAL_BAUD) LOG.info("Baud rate configured to ", m_baud_rate);
}

void GPSDClient::enterReceiverLoop() {
  if (time_source().boot_ns() <= POWER_UP_NS && !m_simulation) m_input->setBaudRate(POWER_UP_BAUD);
  m_epoch.reset(GnssUtils::getMicrosecDuration(0));
}

void GPSDClient::leaveReceiverLoop() {
  disconnect();
  m_input->clearBuffer();
  m_epoch.reset(GnssUtils::getMicrosecDuration(0));
}

/// Tries to connect once a second, and publishes meanwhile that there is no fix.
void GPSDClient::connectOrWait() {
  m_connection_state = ConnectionState::NOT_CONNECTED;
  if (GnssUtils::getMicrosecDuration(0) >= m_earliest_open_us && connect()) return;
  timeoutToSendFrame();
  if (!inMode()) return;
  publishGnssData();
  sendAndCountFrame();
  ++m_comm_retries;
  if (GnssUtils::debugIt(logflag::CONNECTION)) {
    LOG.detail("No communication retrying. Num retries ", m_comm_retries);
  }
}

void GPSDClient::receive() {
  m_connection_state = ConnectionState::CONNECTED;
  bool more_received = false;
  if (readNewData(READ_TIMEOUT_US)) {
    m_data_time_us = GnssUtils::getMicrosecDuration(0);
    m_epoch.setDataTime(m_data_time_us, time_source().boot_ns());
    processNewData();
    more_received = m_input->getBytesWaiting() > m_input->getMessageLength();
  } else if (m_input->isDeviceGone()) {
    deviceGone();
  }
  sendFrameIfDue(more_received);
  if (m_input->isConnected()) superviseReceiver();
}

void GPSDClient::superviseReceiver() {
  if (isNoCommunication()) {
    ++m_comm_retries;
    if (GnssUtils::debugIt(logflag::CONNECTION)) {
      LOG.detail("No communication retrying. Retries ", m_comm_retries);
    }
    disconnect();
    // Bytes that have not formed an item by now never will. A stray sync byte must not cost the answers to
    // the port poll.
    m_input->clearBuffer();
    return;
  }
  if (!m_disable_hw_init) checkUbloxInitialisation();
  m_antenna.checkRadioSilence();
}

/// Keeps the command sequence going. The hardware is not reset during radio silence.
void GPSDClient::checkUbloxInitialisation() {
  m_ublox_config.takeRestart();
  if (m_ublox_config.isInitialised() || m_ublox_config.isStopped()) return;
  m_ublox_config.checkTimeout(!radioSilenceRequested());
}

bool GPSDClient::readNewData(int timeout_us) {
  return m_connection_state == ConnectionState::CONNECTED && m_input->waiting(timeout_us) && m_input->read();
}

void GPSDClient::processNewData() {
  const unsigned char* const message = m_input->getBuffer();
  const int length = m_input->getMessageLength();
  m_bytes_received += static_cast<uint32_t>(length);
  if (message[0] == '$') {
    if (m_epoch.validateNmeaMessage({message, static_cast<size_t>(length)})) {
      m_epoch.processNewNmeaString(m_input->getBaudRate());
    }
  } else if (message[0] == UBX_SYNC) {
    processUblox();
  }
}

void GPSDClient::processUblox() {
  const int length = m_ubx_reception.readUbloxMessage();
  if (length <= 0) return;
  m_last_ublox_time = m_data_time_us;
  if (GnssUtils::debugIt(logflag::NEW_DATA)) {
    LOG.detail("VALID UBLOX len ", length, "\n", hexDumpMessage(m_input->getBuffer(), length, 50, 10, true));
    const int remaining = m_input->getBytesWaiting() - length;
    if (remaining > 0) LOG.detail("Another message waiting ", remaining);
  }
  m_ubx_reception.processUbloxMessage();
}

void GPSDClient::sendFrameIfDue(bool more_received) {
  const bool published = m_epoch.framePublished();
  if (!m_epoch.isFrameDue(GnssUtils::getMicrosecDuration(0), more_received)) {
    if (published) m_epoch.holdBack();
    return;
  }
  if (!published) publishGnssData();
  sendAndCountFrame();
}

/// Sends the published fix to the vehicle's buses and then clears it, so that it leaves only once.
void GPSDClient::sendAndCountFrame() {
  if (m_publish_can) sendGpsOnCan();
  m_epoch.frameSent(GnssUtils::getMicrosecDuration(0), m_epoch.infoSent().m_utc_tm);
  m_epoch.infoSent().clear();
}

void GPSDClient::sendGpsOnCan() {
  GnssInfo& info = m_epoch.infoSent();
  if (m_transport_client->is_connected()) {
    const int32_t status = info.getStatus();
    if (GnssUtils::debugIt(logflag::CONNECTION)) {
      LOG.detail("GPSDClient::sendGpsOnCan -  gnss_status ", status);
    }
    m_publish_can->publishFrame(m_transport_client, info, m_epoch.sentences());
    publishModuleErrorMessage(*m_transport_client, status == 1 && !m_antenna.isRadioSilent());
  } else if (GnssUtils::debugIt(logflag::PUBLICATION)) {
    LOG.detail("GPSDClient::sendGpsOnCan - DATA TO PUBLISH BUT NO MQTT ");
  }
}

/// Waits until a second after the last frame was sent.
void GPSDClient::timeoutToSendFrame() {
  waitWhileRunning(m_epoch.frameSentTimeStamp() + FRAME_US - GnssUtils::getMicrosecDuration(0));
}

bool GPSDClient::isNoCommunication() const {
  if (m_antenna.isRadioSilent()) return false;
  const int64_t threshold = noCommunicationThreshold();
  const int64_t latest = std::max({m_epoch.lastNmeaTime(), m_last_ublox_time, m_connect_time_us});
  return threshold != NEVER && GnssUtils::getMicrosecDuration(0) - latest > threshold;
}

/// A sequence that is still looking for the receiver hunts the baud rate by its own time-outs. On a confirmed
/// port the receiver gets time to answer a command that is sent again.
int64_t GPSDClient::noCommunicationThreshold() const {
  if (m_ublox_config.isInitialised() || m_ublox_config.isStopped()) return m_frame_period_us;
  return m_ublox_config.isPortConfirmed() ? SEQUENCE_SILENCE_US : NEVER;
}

void GPSDClient::deviceGone() {
  // A device that comes and goes without any data is logged once.
  const bool worked = m_data_time_us > m_connect_time_us;
  if (!std::exchange(m_device_gone_logged, true) || worked) {
    LOG.warning("receiver device ", logging::escaped(m_device_path),
                " went away; trying to open it every second");
  }
  m_earliest_open_us = m_connect_time_us + REOPEN_US;
  disconnect();
}

}  // namespace ecu::koru::gpspub
