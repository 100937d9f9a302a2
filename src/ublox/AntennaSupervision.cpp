#include "ublox/AntennaSupervision.h"

#include <array>
#include <string_view>
#include <utility>

#include "publish/StatusSignals.h"
#include "wire/ServiceLog.h"

namespace ecu::koru::gpspub {

namespace {

constexpr size_t CFG_ANT_MIN = 4;
constexpr uint16_t SUPPLY_CONTROL = 0x0001;  // bit 0 of the CFG-ANT flags
constexpr size_t MON_HW_MIN = 60;
constexpr size_t A_STATUS = 20;
constexpr size_t A_POWER = 21;

/// Records on CFG-ANT belong to two log areas.
bool logAntennaControl() {
  return GnssUtils::debugIt(logflag::COMMANDS | logflag::RADIO_SILENCE);
}

bool logRadioSilence() {
  return GnssUtils::debugIt(logflag::RADIO_SILENCE);
}

constexpr std::string_view OPEN_IS_LOGGED_ON = "QRX7_2_KW4";

/// With this unit's antenna circuit the receiver reports OK for an open antenna, and open for one that is OK.
constexpr unsigned remapped(unsigned receiver_status) {
  if (receiver_status == ANTENNA_OK) return ANTENNA_OPEN;
  return receiver_status == ANTENNA_OPEN ? ANTENNA_OK : receiver_status;
}

constexpr std::array<std::string_view, 5> STATUS_NAMES{" (init)", " (don't know)", " (OK)", " (short)",
                                                       " (open)"};

std::string_view powerName(unsigned power) {
  if (power == 0) return " (off)";
  return power == 1 ? " (on)" : " (don't know)";
}

}  // namespace

AntennaSupervision::AntennaSupervision(UbloxConfig& config, IReceiverOwner& owner,
                                       std::shared_ptr<com::ITransportClient> transport)
    : m_config(config), m_owner(owner), m_transport(std::move(transport)) {}

void AntennaSupervision::process_CFG_ANT(const UbxFrame& frame) {
  const auto payload = frame.payload();
  if (payload.size() < CFG_ANT_MIN) {
    LOG.warning("Ublox CFG_ANT bad payload (< 4). len = ", payload.size());
    return;
  }
  m_antenna_power_enabled = (ubx::u16(payload, 0) & SUPPLY_CONTROL) != 0;
  const bool requested = m_owner.radioSilenceRequested();
  // checkRadioSilence() is about to wake the receiver: the silence stays applied until then.
  const bool is_being_lifted = isRadioSilent() && !requested;
  if (m_cold_start || requested) m_radio_silence_applied = requested;
  if (logAntennaControl()) {
    LOG.detail("m_cold_start = ", m_cold_start, ". m_antenna_power_enabled = ", m_antenna_power_enabled,
               ". m_save_antenna_config = ", m_save_antenna_config,
               ". m_radio_silence_configured = ", m_radio_silence_configured,
               ". m_radio_silence requested = ", m_radio_silence_applied);
  }
  if (m_config.isStopped() || is_being_lifted) return;
  if (m_cold_start) {
    judgeColdStart();
  } else {
    judgeWarm();
  }
}

void AntennaSupervision::judgeColdStart() {
  if (m_save_antenna_config) {
    if (logAntennaControl()) LOG.detail("SAVE Antenna config");
    m_config.saveAntennaConfig();
    m_save_antenna_config = m_cold_start = false;
  } else if (m_radio_silence_configured && m_antenna_power_enabled) {
    LOG.warning("Antenna_power wrongly configured. Power enabled at cold start. Disable Antenna Power");
    disableAntennaPower();
    m_radio_silence_applied = m_save_antenna_config = true;
  } else if (m_radio_silence_configured) {
    if (!m_radio_silence_applied && logAntennaControl())
      LOG.detail("Antenna power disabled at cold start. Should enable antenna_power");
    enableAntennaPower();
    m_cold_start = false;
  } else if (m_antenna_power_enabled) {
    enableAntennaPower();
    m_cold_start = m_radio_silence_applied = false;
  } else {
    LOG.warning("Antenna_power wrongly configured. Should enable antenna_power at cold start.");
    enableAntennaPower();
    m_save_antenna_config = true;
    m_radio_silence_applied = false;
  }
}

void AntennaSupervision::judgeWarm() {
  const bool log = logAntennaControl();
  if (m_radio_silence_configured && m_radio_silence_applied) {
    if (log)
      LOG.detail("m_radio_silence_configured AND radio_silence. Disable antenna_power and GNSS receiver");
    disableAntennaPower();
    disableReceiver();
  } else if (m_gnss_antenna_on) {
    if (log) LOG.detail("Should enable antenna_power and ensure open circuit detection");
    enableAntennaPower();
  } else if (m_antenna_power_enabled) {
    if (log) LOG.detail("m_ota_gnss_antenna_on = off. Disable antenna_power");
    disableAntennaPower();
  } else {
    if (log) LOG.detail("m_ota_gnss_antenna_on = off. ublox antenna already off. sendNextCommand");
    m_config.sendNextCommand();
  }
}

void AntennaSupervision::enableAntennaPower() {
  const bool log = GnssUtils::debugIt(logflag::ANTENNA);
  if (m_gnss_antenna_on) {
    if (log) LOG.detail("enableAntennaPower()");
    m_config.enableAntennaPower();
  } else {
    if (log) LOG.detail("enableAntennaPower but m_gnss_antenna_on == off so disableAntennaPower()");
    m_config.disableAntennaPower();
  }
}

void AntennaSupervision::disableAntennaPower() {
  if (GnssUtils::debugIt(logflag::ANTENNA)) LOG.detail("disableAntennaPower()");
  m_config.disableAntennaPower();
}

void AntennaSupervision::disableReceiver() {
  if (logRadioSilence()) LOG.detail("disableReceiver()");
  m_config.disableReceiver();
}

void AntennaSupervision::checkRadioSilence() {
  const bool requested = m_owner.radioSilenceRequested();
  if (!m_radio_silence_configured || m_cold_start || requested == m_radio_silence_applied) return;
  const bool log = logRadioSilence();
  if (log) LOG.detail("RadioSilence requested state is ", requested);
  m_radio_silence_applied = requested;
  if (requested) {
    if (log) LOG.detail("Apply radio silence");
    disableAntennaPower();
    disableReceiver();
  } else {
    if (log) LOG.detail("Recover from radio silence");
    m_config.hardwareResetUblox();
    m_owner.disconnect();
  }
}

void AntennaSupervision::process_MON_HW(const UbxFrame& frame) {
  const auto payload = frame.payload();
  if (payload.size() < MON_HW_MIN) {
    LOG.warning("Ublox MON-HW bad payload (< 60). len = ", payload.size());
    return;
  }
  const unsigned received = ubx::u8(payload, A_STATUS);
  const unsigned power = ubx::u8(payload, A_POWER);
  if (GnssUtils::debugIt(logflag::ANTENNA)) {
    LOG.detail("Antenna status = ", received,
               received < STATUS_NAMES.size() ? STATUS_NAMES[received] : " (don't know)",
               " antenna power = ", power, powerName(power));
  }
  const unsigned status = remapped(received);
  if (status != m_antenna_status) logStatusChange(status);
  m_antenna_status = status;
  publishAntennaMessage(*m_transport, status, power);
}

void AntennaSupervision::logStatusChange(unsigned status) const {
  const unsigned before = m_antenna_status;
  if (status == ANTENNA_OPEN && m_owner.hwVersionSignal() == OPEN_IS_LOGGED_ON) {
    LOG.warning(before == ANTENNA_OK      ? "Antenna status changed OK to Open circuit"
                : before == ANTENNA_SHORT ? "Antenna status Short circuit to Open circuit"
                                          : "Antenna status is Open Circuit");
  } else if (status == ANTENNA_SHORT) {
    LOG.warning(before == ANTENNA_OK     ? "Antenna status changed from OK to Short circuit"
                : before == ANTENNA_OPEN ? "Antenna status changed from Open circuit to Short circuit"
                                         : "Antenna status is Short Circuit");
  } else if (status == ANTENNA_OK && before == ANTENNA_SHORT) {
    LOG.notice("Antenna status changed Short circuit to OK");
  } else if (status == ANTENNA_OK && before == ANTENNA_OPEN) {
    LOG.notice("Antenna status changed Open Circuit to OK");
  }
}

}  // namespace ecu::koru::gpspub
