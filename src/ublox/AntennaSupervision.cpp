#include "ublox/AntennaSupervision.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include "publish/StatusSignals.h"
#include "wire/ServiceLog.h"
#include "wire/Stopwatch.h"

namespace ecu::koru::gpspub {

namespace {

constexpr size_t CFG_ANT_MIN = 4;
constexpr uint16_t SUPPLY_CONTROL = 0x0001;  // bit 0 of the CFG-ANT flags
constexpr size_t MON_HW_MIN = 60;
constexpr size_t A_STATUS = 20;
constexpr size_t A_POWER = 21;

// The areas that log judgements of the supply.
constexpr unsigned SUPPLY_FLAGS = logflag::COMMANDS | logflag::RADIO_SILENCE;

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

using enum AntennaState;
using enum AntennaAction;

enum class Is { NO, YES, ANY };
using enum Is;

/// The consequences of a CFG-ANT answer in this state and situation.
struct Judgement {
  AntennaState state;
  Is supply_on, silence_configured, silence_requested, antenna_on;
  AntennaAction action;
  AntennaState next;
  bool is_fault;
  const char* record;
};

constexpr const char* SILENCE_RECORD =
    "m_radio_silence_configured AND radio_silence. Disable antenna_power and GNSS receiver";

// The first row that matches holds, and each situation has one. A row that is a fault logs a warning.
constexpr std::array<Judgement, 13> JUDGEMENTS{
    {{COLD_START, YES, YES, ANY, ANY, DISABLE, SAVING, true,
      "Antenna_power wrongly configured. Power enabled at cold start. Disable Antenna Power"},
     {COLD_START, NO, YES, YES, ANY, ENABLE, SILENT, false, nullptr},
     {COLD_START, NO, YES, NO, ANY, ENABLE, WARM, false,
      "Antenna power disabled at cold start. Should enable antenna_power"},
     {COLD_START, YES, NO, ANY, ANY, ENABLE, WARM, false, nullptr},
     {COLD_START, NO, NO, ANY, ANY, ENABLE, SAVING, true,
      "Antenna_power wrongly configured. Should enable antenna_power at cold start."},
     {SAVING, ANY, YES, YES, ANY, SAVE, SILENT, false, "SAVE Antenna config"},
     {SAVING, ANY, ANY, ANY, ANY, SAVE, WARM, false, "SAVE Antenna config"},
     {WARM, ANY, YES, YES, ANY, SILENCE, SILENT, false, SILENCE_RECORD},
     {WARM, ANY, ANY, ANY, YES, ENABLE, WARM, false,
      "Should enable antenna_power and ensure open circuit detection"},
     {WARM, YES, ANY, ANY, NO, DISABLE, WARM, false, "m_ota_gnss_antenna_on = off. Disable antenna_power"},
     {WARM, NO, ANY, ANY, NO, NEXT_COMMAND, WARM, false,
      "m_ota_gnss_antenna_on = off. ublox antenna already off. sendNextCommand"},
     {SILENT, ANY, ANY, YES, ANY, SILENCE, SILENT, false, SILENCE_RECORD},
     // checkRadioSilence() is about to wake the receiver.
     {SILENT, ANY, ANY, NO, ANY, NOTHING, SILENT, false, nullptr}}};

bool matches(Is wanted, bool is) {
  return wanted == ANY || (wanted == YES) == is;
}

const Judgement& judge(AntennaState state, bool supply_on, bool silence_configured, bool silence_requested,
                       bool antenna_on) {
  return *std::ranges::find_if(JUDGEMENTS, [&](const Judgement& row) {
    return row.state == state && matches(row.supply_on, supply_on) &&
           matches(row.silence_configured, silence_configured) &&
           matches(row.silence_requested, silence_requested) && matches(row.antenna_on, antenna_on);
  });
}

}  // namespace

AntennaSupervision::AntennaSupervision(UbloxConfig& config, const IReceiverRequests& requests,
                                       IReceiverOwner& owner,
                                       std::shared_ptr<com::ITransportClient> transport)
    : m_config(config), m_requests(requests), m_owner(owner), m_transport(std::move(transport)) {}

void AntennaSupervision::process_CFG_ANT(const UbxFrame& frame) {
  const auto payload = frame.payload();
  if (payload.size() < CFG_ANT_MIN) {
    LOG.warning("Ublox CFG_ANT bad payload (< 4). len = ", payload.size());
    return;
  }
  const bool supply_on = (ubx::u16(payload, 0) & SUPPLY_CONTROL) != 0;
  const bool requested = m_requests.radioSilence();
  LOG.detail(SUPPLY_FLAGS, "m_cold_start = ", m_state == COLD_START || m_state == SAVING,
             ". m_antenna_power_enabled = ", supply_on, ". m_save_antenna_config = ", m_state == SAVING,
             ". m_radio_silence_configured = ", m_radio_silence_configured,
             ". m_radio_silence requested = ", requested || isRadioSilent());
  if (m_config.isStopped()) return;
  const Judgement& row =
      judge(m_state, supply_on, m_radio_silence_configured, requested, m_requests.gnssAntennaOn());
  if (row.is_fault) {
    LOG.warning(row.record);
  } else if (row.record != nullptr) {
    LOG.detail(SUPPLY_FLAGS, row.record);
  }
  if (row.state == COLD_START && row.action == DISABLE)
    m_supply_off_at_us = GnssUtils::getMicrosecDuration(0);
  m_state = row.next;
  carryOut(row.action);
}

void AntennaSupervision::carryOut(AntennaAction action) {
  if (action == SAVE) m_config.saveAntennaConfig();
  if (action == ENABLE) enableAntennaPower();
  if (action == DISABLE || action == SILENCE) disableAntennaPower();
  if (action == SILENCE) disableReceiver();
  if (action == NEXT_COMMAND) m_config.sendNextCommand();
}

void AntennaSupervision::enableAntennaPower() {
  if (m_requests.gnssAntennaOn()) {
    LOG.detail(logflag::ANTENNA, "enableAntennaPower()");
    m_config.enableAntennaPower();
  } else {
    LOG.detail(logflag::ANTENNA, "enableAntennaPower but m_gnss_antenna_on == off so disableAntennaPower()");
    m_config.disableAntennaPower();
  }
}

void AntennaSupervision::disableAntennaPower() {
  LOG.detail(logflag::ANTENNA, "disableAntennaPower()");
  m_config.disableAntennaPower();
}

void AntennaSupervision::disableReceiver() {
  LOG.detail(logflag::RADIO_SILENCE, "disableReceiver()");
  m_config.disableReceiver();
}

void AntennaSupervision::checkRadioSilence() {
  const bool requested = m_requests.radioSilence();
  const bool is_cold_start = m_state == COLD_START || m_state == SAVING;
  if (!m_radio_silence_configured || is_cold_start || requested == isRadioSilent()) return;
  LOG.detail(logflag::RADIO_SILENCE, "RadioSilence requested state is ", requested);
  m_state = requested ? SILENT : WARM;
  if (requested) {
    LOG.detail(logflag::RADIO_SILENCE, "Apply radio silence");
    carryOut(SILENCE);
  } else {
    LOG.detail(logflag::RADIO_SILENCE, "Recover from radio silence");
    m_config.hardwareResetUblox();
    m_owner.disconnect(CloseReason::WAKING);
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
  LOG.detail(logflag::ANTENNA, "Antenna status = ", received,
             received < STATUS_NAMES.size() ? STATUS_NAMES[received] : " (don't know)",
             " antenna power = ", power, powerName(power));
  const unsigned status = remapped(received);
  if (status != m_antenna_status) logStatusChange(status);
  m_antenna_status = status;
  publishAntennaMessage(*m_transport, status, power);
}

void AntennaSupervision::logStatusChange(unsigned status) const {
  const unsigned before = m_antenna_status;
  if (status == ANTENNA_OPEN && m_requests.hwVersion() == OPEN_IS_LOGGED_ON) {
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
