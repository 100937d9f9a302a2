#pragma once

#include <cstdint>
#include <memory>

#include "platform/base/Time.h"
#include "platform/com/Transport.h"
#include "ublox/IReceiverOwner.h"
#include "ublox/IReceiverRequests.h"
#include "ublox/UbloxConfig.h"
#include "wire/UbxFrame.h"

namespace ecu::koru::gpspub {

enum class AntennaState {
  COLD_START,  ///< no CFG-ANT answer has been judged since the start
  SAVING,      ///< still the cold start: the next answer saves the setting that was just sent
  WARM,        ///< the cold start is over
  SILENT       ///< the cold start is over and radio silence is applied; stands for m_radio_silence_applied
};

enum class AntennaAction { NOTHING, SAVE, ENABLE, DISABLE, SILENCE, NEXT_COMMAND };

/// Switches the antenna's supply, watches its status and applies radio silence. Service thread.
class AntennaSupervision {
 public:
  AntennaSupervision(UbloxConfig& config, const IReceiverRequests& requests, IReceiverOwner& owner,
                     std::shared_ptr<com::ITransportClient> transport);

  void setRadioSilenceConfigured(bool on) { m_radio_silence_configured = on; }

  /// Decides from the reported antenna supply what is switched, and whether the receiver saves it.
  void process_CFG_ANT(const UbxFrame& frame);
  /// Logs changes of the antenna's status and publishes it.
  void process_MON_HW(const UbxFrame& frame);
  /// Applies or lifts radio silence, on every pass of the run loop.
  void checkRadioSilence();
  /// Returns true while radio silence is applied: the receiver is silent on purpose.
  [[nodiscard]] bool isRadioSilent() const { return m_state == AntennaState::SILENT; }
  /// Returns the status that the receiver reported last: ANTENNA_OK and the like, or 0.
  [[nodiscard]] unsigned status() const { return m_antenna_status; }
  /// Returns when the supply was switched off because it was on at cold start (stopwatch 0, us), or NEVER.
  [[nodiscard]] int64_t supplyOffTime() const { return m_supply_off_at_us; }

 private:
  void enableAntennaPower();
  void disableAntennaPower();
  void disableReceiver();
  void carryOut(AntennaAction action);
  void logStatusChange(unsigned status) const;

  UbloxConfig& m_config;
  const IReceiverRequests& m_requests;
  IReceiverOwner& m_owner;
  std::shared_ptr<com::ITransportClient> m_transport;

  AntennaState m_state = AntennaState::COLD_START;
  bool m_radio_silence_configured = true;  // no configuration clears it
  int64_t m_supply_off_at_us = NEVER;      // stopwatch 0
  unsigned m_antenna_status = 0;           // 2 OK, 3 short circuit, 4 open circuit
};

}  // namespace ecu::koru::gpspub
