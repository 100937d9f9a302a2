#include "core/ReceiverMode.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "input/RecordedDevices.h"
#include "input/SPI.h"
#include "input/SerialInput.h"
#include "nmea/GnssInfo.h"
#include "platform/base/Time.h"
#include "publish/StatusSignals.h"
#include "wire/HexDump.h"
#include "wire/ServiceLog.h"
#include "wire/Stopwatch.h"

namespace ecu::koru::gpspub {

namespace {

constexpr int64_t SHORTEST_WAIT_US = 1;       // held bytes come before a deadline that has passed
constexpr int64_t LONGEST_WAIT_US = 999'999;  // waiting() takes less than a second
constexpr int64_t FRAME_US = 1'000'000;
constexpr int64_t REOPEN_US = 1'000'000;
// For the first 140 s after boot, the receiver is expected at its power-up rate.
constexpr int64_t POWER_UP_NS = 139'999'999'999;
constexpr unsigned POWER_UP_BAUD = 9600;
constexpr unsigned USUAL_BAUD = 38400;
constexpr int64_t ABOUT_TO_US = 500'000;      // what happens so soon is reported as happening
constexpr int64_t LAST_FIXES_US = 5'000'000;  // a receiver may still give some without its antenna
constexpr int64_t SEQUENCE_SILENCE_US = 15'000'000;

std::unique_ptr<IGnssInput> createInput(const Unit& unit, const std::shared_ptr<LinkRecorder>& recorder) {
  std::unique_ptr<IGnssInput> input;
  if (unit.isReceiverOnSpi()) {
    input = std::make_unique<SPI>(recorded(makeDeviceFiles(), recorder));
  } else {
    input = std::make_unique<SerialInput>(recorded(makeTerminalDevice(), recorder));
  }
  input->setGnssDeviceName(unit.devicePath());
  return input;
}

}  // namespace

ReceiverMode::ReceiverMode(std::shared_ptr<com::ITransportClient> transport, const Unit& unit,
                           BusRequests& requests, RunControl& run, FixPublisher& publisher,
                           UnitHardware hardware)
    : m_transport_client(std::move(transport)),
      m_unit(unit),
      m_requests(requests),
      m_run(run),
      m_publisher(publisher),
      m_input(hardware.input ? std::move(hardware.input) : createInput(unit, hardware.recorder)),
      m_epoch(*this),
      m_ublox_config(*m_input, ReceiverLines(unit.resetLine(), hardware.gpio_root), requests, *this),
      m_antenna(m_ublox_config, requests, *this, m_transport_client),
      m_ubx_reception(*m_input, m_ublox_config, m_antenna, *this) {
  m_input->setWakeUp(requests.wakeUp());
}

// -- The device

bool ReceiverMode::connect() {
  m_connect_time_us = GnssUtils::getMicrosecDuration(0);
  const bool connected = m_input->connect();
  m_watch.opened(connected ? 0 : errno);
  return connected;
}

void ReceiverMode::disconnect(CloseReason reason) {
  using enum CloseReason;
  m_input->disconnect();
  m_watch.closed(reason, GnssUtils::getMicrosecDuration(0), m_ublox_config.naks());
  // Bytes that have not formed an item by now never will, and those read at a wrong rate are garbage. A stray
  // sync byte among them must not hold up framing.
  if (reason == MODE_ENDS || reason == SILENT || reason == NEXT_RATE) m_input->clearBuffer();
  if (reason == MODE_ENDS) m_ublox_config.lines().finishReset();
  if (reason == NEXT_RATE) return;
  m_ublox_config.unconfirmPort();
  if (reason != CHANGING_RATE) m_ublox_config.restart();
}

bool ReceiverMode::setBaudRate(uint32_t baud) {
  m_baud_rate = baud;
  m_ubx_reception.setBaudRate(baud);
  return m_input->setBaudRate(baud);
}

void ReceiverMode::disableHardwareInit() {
  m_disable_hw_init = true;
  m_ublox_config.disableHardwareInit();
}

// -- The loop

void ReceiverMode::runUblox() {
  logInputWarnings();
  enterReceiverLoop();
  while (m_run.inMode()) {
    m_run.reports().passBegins();
    if (m_input->isConnected()) {
      receive();
    } else {
      connectOrWait();
    }
  }
  leaveReceiverLoop();
}

void ReceiverMode::logInputWarnings() const {
  if (m_disable_hw_init) LOG.warning("Hardware init disabled. Probably simulated input.");
  if (m_unit.isDeviceRedirected()) {
    LOG.warning(
        m_simulation ? "EHorizon sim active. Hardware port redirected to " : "Hardware port redirected to ",
        logging::escaped(m_unit.devicePath()), ". Probably simulated input.");
  }
  if (m_baud_rate != USUAL_BAUD) LOG.info("Baud rate configured to ", m_baud_rate);
}

void ReceiverMode::enterReceiverLoop() {
  if (time_source().boot_ns() <= POWER_UP_NS && !m_simulation) m_input->setBaudRate(POWER_UP_BAUD);
  const int64_t now = GnssUtils::getMicrosecDuration(0);
  m_watch.begins(now, received(), m_ublox_config.naks());
  m_epoch.reset(now);
}

void ReceiverMode::leaveReceiverLoop() {
  disconnect(CloseReason::MODE_ENDS);
  m_epoch.reset(GnssUtils::getMicrosecDuration(0));
}

/// Tries to connect once a second, and publishes meanwhile that there is no fix. A receiver whose reset line
/// is low is left alone.
void ReceiverMode::connectOrWait() {
  const int64_t now = GnssUtils::getMicrosecDuration(0);
  m_ublox_config.lines().checkReset(now);
  const int64_t reset_due = m_ublox_config.lines().resetDue();
  const int64_t open_due = reset_due != NEVER ? reset_due : m_earliest_open_us;
  if (now >= open_due && connect()) {
    m_run.wake();  // for requests that came while it was closed
    return;
  }
  if (!timeoutToSendFrame(now >= open_due ? NEVER : open_due)) return;
  const com::Burst burst(*m_transport_client);
  publishGnssData();
  sendAndCountFrame();
  ++m_comm_retries;
  LOG.detail(logflag::CONNECTION, "No communication retrying. Num retries ", m_comm_retries);
}

void ReceiverMode::receive() {
  const int64_t wait_us = nextDeadline() - GnssUtils::getMicrosecDuration(0);
  processAndPublish(readNewData(static_cast<int>(std::clamp(wait_us, SHORTEST_WAIT_US, LONGEST_WAIT_US))));
  if (m_input->isConnected()) superviseReceiver();
}

void ReceiverMode::processAndPublish(bool has_data) {
  const com::Burst burst(*m_transport_client);
  bool more_received = false;
  if (has_data) {
    m_data_time_us = GnssUtils::getMicrosecDuration(0);
    m_epoch.setDataTime(m_data_time_us, time_source().boot_ns());
    processNewData();
    more_received = m_input->getBytesWaiting() > m_input->getMessageLength();
  } else if (m_input->isDeviceGone()) {
    deviceGone();
  }
  sendFrameIfDue(more_received);
}

void ReceiverMode::superviseReceiver() {
  if (isNoCommunication()) {
    ++m_comm_retries;
    LOG.detail(logflag::CONNECTION, "No communication retrying. Retries ", m_comm_retries);
    disconnect(CloseReason::SILENT);
    return;
  }
  if (!m_disable_hw_init) checkUbloxInitialisation();
  if (m_input->isConnected()) m_antenna.checkRadioSilence();
}

/// Keeps the command sequence going. The hardware is not reset during radio silence.
void ReceiverMode::checkUbloxInitialisation() {
  m_ublox_config.takeRestart();
  if (m_ublox_config.isInitialised() || m_ublox_config.isStopped()) return;
  m_ublox_config.checkTimeout(!m_requests.radioSilence());
}

bool ReceiverMode::readNewData(int timeout_us) {
  if (!m_input->isConnected() || !m_input->waiting(timeout_us)) return false;
  const bool has_item = m_input->read();
  m_watch.received(m_input->getCounts().bytes_received, GnssUtils::getMicrosecDuration(0));
  return has_item;
}

/// An over-long line also goes to validation, which rejects it.
void ReceiverMode::processNewData() {
  const int length = m_input->getMessageLength();
  m_bytes_received += static_cast<uint32_t>(length);
  if (m_input->getItemKind() == ItemKind::UBX_FRAME) {
    processUblox();
  } else if (m_epoch.validateNmeaMessage({m_input->getBuffer(), static_cast<size_t>(length)})) {
    m_epoch.processNewNmeaString(m_input->getBaudRate());
  }
}

void ReceiverMode::processUblox() {
  const int length = m_ubx_reception.readUbloxMessage();
  if (length <= 0) return;
  ++m_frames_received;
  m_last_ublox_time = m_data_time_us;
  LOG.detail(logflag::NEW_DATA, "VALID UBLOX len ", length, "\n",
             [&] { return hexLines(m_input->getBuffer(), length); });
  const int remaining = m_input->getBytesWaiting() - length;
  if (remaining > 0) LOG.detail(logflag::NEW_DATA, "Another message waiting ", remaining);
  m_ubx_reception.processUbloxMessage();
}

void ReceiverMode::sendFrameIfDue(bool more_received) {
  const bool published = m_epoch.framePublished();
  if (!m_epoch.isFrameDue(GnssUtils::getMicrosecDuration(0), more_received)) {
    if (published) m_epoch.holdBack();
    return;
  }
  if (!published) publishGnssData();
  sendAndCountFrame();
}

/// Sends the published fix to the vehicle's buses and then clears it, so that it leaves only once.
void ReceiverMode::sendAndCountFrame() {
  if (m_unit.isOnVehicleBuses()) sendGpsOnCan();
  m_epoch.frameSent(GnssUtils::getMicrosecDuration(0), m_epoch.infoSent().m_utc_tm);
  m_epoch.infoSent().clear();
}

void ReceiverMode::sendGpsOnCan() {
  GnssInfo& info = m_epoch.infoSent();
  if (m_publisher.isConnected()) {
    const int32_t status = info.getStatus();
    LOG.detail(logflag::CONNECTION, "GPSDClient::sendGpsOnCan -  gnss_status ", status);
    m_publisher.publishOnCan(info, m_epoch.sentences());
    publishModuleErrorMessage(*m_transport_client, status == 1 && !m_antenna.isRadioSilent());
  } else {
    LOG.detail(logflag::PUBLICATION, "GPSDClient::sendGpsOnCan - DATA TO PUBLISH BUT NO MQTT ");
  }
}

void ReceiverMode::publishGnssData() {
  m_watch.published(m_epoch.info(), GnssUtils::getMicrosecDuration(0), received());
  if (m_publisher.isConnected()) {
    m_publisher.publishGnssData(m_epoch.info(), m_epoch.sentences());
  } else {
    ++m_unsent;
    LOG.detail(logflag::PUBLICATION, "GPSDClient::publishGnssData - DATA TO PUBLISH BUT NO MQTT");
  }
  m_epoch.rotate(m_ublox_config.receiverFlag());
  m_run.reports().look();
}

/// Waits until a second after the last frame was sent, or until `open_due`, when the device is to be opened.
/// Returns true if a frame is due.
bool ReceiverMode::timeoutToSendFrame(int64_t open_due) {
  const int64_t frame_due = m_epoch.frameSentTimeStamp() + FRAME_US;
  m_run.waitUntil(std::min(frame_due, open_due), [this] { return !m_run.inMode(); });
  return m_run.inMode() && GnssUtils::getMicrosecDuration(0) >= frame_due;
}

/// Returns when something is to be done even if no byte comes until then.
int64_t ReceiverMode::nextDeadline() const {
  return std::min(
      {m_epoch.frameDue(false), m_ublox_config.answerDue(), noCommunicationDue(), m_run.reports().due()});
}

bool ReceiverMode::isNoCommunication() const {
  return GnssUtils::getMicrosecDuration(0) >= noCommunicationDue();
}

/// Returns when a silent receiver counts as lost. The sequence's own time-outs apply while it looks for the
/// baud rate. On a confirmed port the receiver gets time to answer a command that is sent again.
int64_t ReceiverMode::noCommunicationDue() const {
  const bool has_settled = m_ublox_config.isInitialised() || m_ublox_config.isStopped();
  if (m_antenna.isRadioSilent() || (!has_settled && !m_ublox_config.isPortConfirmed())) return NEVER;
  const int64_t threshold = has_settled ? m_frame_period_us : SEQUENCE_SILENCE_US;
  return std::max({m_epoch.lastNmeaTime(), m_last_ublox_time, m_connect_time_us}) + threshold + 1;
}

void ReceiverMode::deviceGone() {
  // A device that comes and goes without any data is logged once.
  const bool worked = m_data_time_us > m_connect_time_us;
  if (!std::exchange(m_device_gone_logged, true) || worked) {
    LOG.warning("receiver device ", logging::escaped(m_unit.devicePath()),
                " went away; trying to open it every second");
  }
  m_earliest_open_us = m_connect_time_us + REOPEN_US;
  disconnect(CloseReason::DEVICE_GONE);
}

// -- For the reports

Reception ReceiverMode::received() const {
  const EpochCounts& epochs = m_epoch.counts();
  return {m_input->getCounts().bytes_received, epochs.sentences, epochs.rejected, epochs.rmc,
          m_frames_received};
}

FixFacts ReceiverMode::fixFacts() const {
  const int64_t now = GnssUtils::getMicrosecDuration(0);
  const bool is_asked = !m_ublox_config.isStopped() && !m_ublox_config.isPortConfirmed();
  FixFacts facts = m_watch.facts(now, is_asked, m_ublox_config.naks());
  facts.device = m_unit.devicePath();
  facts.is_on_spi = m_unit.isReceiverOnSpi();
  facts.radio_silent = m_antenna.isRadioSilent();
  facts.reopens = facts.reopens || noCommunicationDue() - now <= ABOUT_TO_US;
  facts.is_sought = is_asked && !facts.is_on_spi;
  facts.baud = m_input->getBaudRate();
  facts.antenna_on = m_requests.gnssAntennaOn();
  facts.antenna_status = m_antenna.status();
  const int64_t supply_off = m_antenna.supplyOffTime();
  const bool has_recovered = supply_off != NEVER && m_watch.lastValid() - supply_off >= LAST_FIXES_US;
  if (supply_off != NEVER && !has_recovered) facts.supply_off_us = now - supply_off;
  return facts;
}

void ReceiverMode::fillHealth(pb::GnssHealth& health) const {
  const InputCounts input = m_input->getCounts();
  const EpochCounts& epochs = m_epoch.counts();
  health.set_fixes(m_watch.fixes());
  health.set_incomplete_epochs(epochs.incomplete);
  health.set_bytes_received(input.bytes_received);
  health.set_bytes_dropped(input.bytes_discarded);
  health.set_bad_sentences(epochs.rejected);
  health.set_bad_frames(input.bad_ubx_checksums);
  health.set_reopenings(m_watch.opens() > 0 ? m_watch.opens() - 1 : 0);
  if (!m_unit.isReceiverOnSpi()) health.set_baud_rate(m_input->getBaudRate());
  health.set_naks(m_ublox_config.naks());
  if (m_ublox_config.naks() > 0) health.set_last_refused(std::string(m_ublox_config.lastRefused()));
  health.set_wanted_systems(m_requests.gnssSystemRequested());
  if (const auto enabled = m_ublox_config.enabledSystems()) health.set_enabled_systems(*enabled);
  health.set_antenna_status(m_antenna.status());
  if (!m_ubx_reception.softwareVersion().empty())
    health.set_receiver_software(m_ubx_reception.softwareVersion());
  health.set_messages_dropped(m_unsent);
  health.set_sequence_step(m_ublox_config.stepName());
}

}  // namespace ecu::koru::gpspub
