#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "input/IGnssInput.h"
#include "ublox/GnssSelection.h"
#include "ublox/ReceiverLines.h"
#include "ublox/UbxCommands.h"

namespace ecu::koru::gpspub {

/// The command sequencer: brings the receiver into the configuration that the service needs and keeps it
/// there.
///
/// It sends the init commands one at a time, then ten complex steps; every step leaves on an answer that
/// advances it, on three NAKs, or by time-outs. While the port is not confirmed and nothing comes in, it
/// hunts the baud rate and pulses the reset line at every 19th change. When both phases are through it falls
/// silent until a restart.
///
/// Owned by the service, service thread only, except what is marked. Its clock is stopwatch 0.
class UbloxConfig {
 public:
  UbloxConfig(IGnssInput& input, ReceiverLines lines);

  // --- what is wanted
  // --------------------------------------------------------------------------------------------- Systems:
  // bit 0 GPS, 1 GLONASS, 2 BeiDou, 3 Galileo. Any thread.
  void setGnssSystemRequested(uint32_t mask) { m_gnss_system_requested = mask; }
  void setGnssSystemRequested(uint32_t bit, bool on);
  [[nodiscard]] uint32_t gnssSystemRequested() const { return m_gnss_system_requested; }
  /// Augmentation: bit 0 SBAS, 1 QZSS, 2 IMES. Until it is set, it follows from the systems.
  void setGnssAugmentationRequested(uint32_t mask);
  [[nodiscard]] uint32_t gnssAugmentationRequested() const;
  /// Whole UBX frames that are sent in the complex phase, at most five.
  void setRawCmdPost(std::vector<std::string> frames) { m_raw_cmd_post = std::move(frames); }
  [[nodiscard]] const std::vector<std::string>& rawCmdPost() const { return m_raw_cmd_post; }
  /// The time between two solutions, ms.
  void setMeasurementPeriod(uint16_t period_ms);
  /// The receiver counts as configured; nothing is sent to it and its reset line is left alone.
  void disableHardwareInit();

  // --- the sequence
  // -----------------------------------------------------------------------------------------------
  [[nodiscard]] bool hasCommandToSend() const;
  /// Advances and returns the next frame; empty when the sequence is through.
  [[nodiscard]] std::string getNextCommand();
  void sendNextCommand();
  /// Sends the frame in flight again.
  void sendCommand();
  /// More than 3 s since the last transmission.
  [[nodiscard]] bool isTimeout() const;
  /// Resends, or gives up on the frame in flight, when it is due. `count_hw_timeouts` false: no reset of the
  /// hardware.
  bool checkTimeout(bool count_hw_timeouts);
  void handle_UBX_ACK_NAK_response(const UbxFrame& frame);
  /// Asks for a start from the first command. Any thread; many requests are one.
  void requestRestart() { m_restart_requested = true; }
  /// Carries a request out: the first command is sent at once, unless it is already in flight.
  void takeRestart();
  /// The sequence begins anew; its first command is sent when the period that runs now has expired.
  void restart();

  [[nodiscard]] bool isInitialised() const { return m_initialised; }
  [[nodiscard]] bool isStopped() const { return m_stopped; }
  [[nodiscard]] bool isPortConfirmed() const { return m_port_confirmed; }
  [[nodiscard]] unsigned initCommandIdx() const { return m_init_command_idx; }
  /// The receiver was seen at the configured rate.
  void confirmPort();
  /// Its rate is not known (any more).
  void unconfirmPort();
  /// The trust that a fix deserves: 1 when the receiver's configuration is none of our business or its port
  /// is confirmed.
  [[nodiscard]] uint8_t receiverFlag() const { return m_stopped || m_port_confirmed ? 1 : 0; }

  // --- single commands: each becomes the frame in flight
  // ------------------------------------------------------------
  void disableAntennaPower() { sendCommand(ubx::DISABLE_ANTENNA_POWER); }
  void disableAntennaPower2() { sendCommand(ubx::DISABLE_ANTENNA_POWER2); }
  void enableAntennaPower() { sendCommand(ubx::ENABLE_ANTENNA_POWER); }
  void saveAntennaConfig() { sendCommand(ubx::SAVE_ANTENNA_CONFIG); }
  void configureBaudrate9600() { sendCommand(ubx::BAUDRATE_9600); }
  void configureBaudrate19200() { sendCommand(ubx::BAUDRATE_19200); }
  void configureBaudrate38400() { sendCommand(ubx::BAUDRATE_38400); }
  void configureBaudrate57600() { sendCommand(ubx::BAUDRATE_57600); }
  void configureBaudrate115200() { sendCommand(ubx::BAUDRATE_115200); }
  /// The rate that the receiver is given for a configured one: 19200 for those without a command.
  [[nodiscard]] static uint32_t effectiveBaudrate(uint32_t configured);
  /// The command of an effective rate.
  void configureBaudrate(uint32_t effective);
  /// Sends the last CFG-PRT frame back.
  void configureSPI_TxReady();
  /// Standby, then GNSS stop.
  void disableReceiver();
  void hardwareResetUblox() const {
    if (!m_stopped) m_lines.hardwareResetUblox();
  }

  // --- what the receiver answered
  // -----------------------------------------------------------------------------------
  void setPortFrame(std::string frame) { m_CFG_PRT_string = std::move(frame); }
  void setMonGnss(const MON_GNSS& record) { m_MON_GNSS = record; }
  void setCfgGnss(CFG_GNSS record, std::string frame);
  [[nodiscard]] bool isAugmentationChanged(const CFG_GNSS& cfg) const;
  /// Prepares the CFG-GNSS frame when the receiver's systems are not those wanted; false when nothing is to
  /// be sent.
  [[nodiscard]] bool checkGnssSystem();

 private:
  void sendCommand(const UbxCommand& command);
  /// Another frame is in flight from now on; NAKs and expired periods of the one before do not count for it.
  void replaceCommand(std::string frame);
  [[nodiscard]] bool isAtFirstCommand() const;
  [[nodiscard]] std::string complexCommand(unsigned step);
  void transmit(std::string frame);
  void handleTimeout(bool count_hw_timeouts);
  void tryOtherBaudRate(bool count_hw_timeouts);

  IGnssInput& m_input;
  const ReceiverLines m_lines;

  std::atomic<uint32_t> m_gnss_system_requested{0x03};
  uint32_t m_gnss_augmentation_requested = 0;
  bool m_gnss_augmentation_configured = false;
  std::vector<std::string> m_raw_cmd_post;
  std::string m_navigation_rate;
  bool m_save_config = false;  // nothing sets it: the step is dormant

  std::atomic<bool> m_restart_requested{false};
  bool m_initialised = false;
  bool m_stopped = false;
  bool m_port_confirmed = false;
  unsigned m_init_command_idx = 0;
  unsigned m_complex_command_idx = 0;
  unsigned m_nak_counter = 0;
  int64_t m_command_sent_time = 0;  // us
  unsigned m_timeout_counter = 0;
  unsigned m_hw_timeout_counter = 0;
  unsigned m_max_timeouts;
  int m_lines_received = 0;
  std::string m_command;  // in flight

  std::string m_CFG_PRT_string;  // last frames received
  std::string m_CFG_GNSS_received;
  std::string m_CFG_GNSS_string;  // to be sent
  CFG_GNSS m_CFG_GNSS;
  MON_GNSS m_MON_GNSS;
};

}  // namespace ecu::koru::gpspub
