#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "input/IGnssInput.h"
#include "ublox/CommandSequence.h"
#include "ublox/GnssSelection.h"
#include "ublox/IReceiverOwner.h"
#include "ublox/IReceiverRequests.h"
#include "ublox/ReceiverLines.h"
#include "ublox/UbxCommands.h"

namespace ecu::koru::gpspub {

/// Configures the receiver as the service needs it and keeps it so. Carries out the decisions of the
/// CommandSequence, one frame in flight at a time, and holds the configured settings.
///
/// Owned by the service. Service thread only. Its clock is stopwatch 0.
class UbloxConfig {
 public:
  UbloxConfig(IGnssInput& input, ReceiverLines lines, IReceiverRequests& requests, IReceiverOwner& owner);

  // -- Configured settings

  /// Sets the augmentation: bit 0 SBAS, 1 QZSS, 2 IMES. Until it is set, it follows from the systems.
  void setGnssAugmentationRequested(uint32_t mask);
  [[nodiscard]] uint32_t gnssAugmentationRequested() const;
  /// Sets the complete UBX frames that are sent in the complex phase, at most five.
  void setRawCmdPost(std::vector<std::string> frames) { m_raw_cmd_post = std::move(frames); }
  [[nodiscard]] const std::vector<std::string>& rawCmdPost() const { return m_raw_cmd_post; }
  /// Sets the time between two solutions, in ms.
  void setMeasurementPeriod(uint16_t period_ms);
  /// The receiver counts as configured. Nothing is sent to it and its reset line is left alone.
  void disableHardwareInit();

  // -- The sequence

  [[nodiscard]] bool hasCommandToSend() const { return m_sequence.hasCommandToSend(); }
  void sendNextCommand();
  /// Sends the frame in flight again.
  void sendCommand();
  /// Returns true if the last transmission was more than 3 s ago.
  [[nodiscard]] bool isTimeout() const;
  /// Returns when checkTimeout() is to be called next, or NEVER if nothing is to be sent.
  [[nodiscard]] int64_t answerDue() const;
  /// Resends or gives up on the frame in flight and returns true if isTimeout(). Without `count_hw_timeouts`
  /// the reset line is not pulsed.
  bool checkTimeout(bool count_hw_timeouts);
  void handle_UBX_ACK_NAK_response(const UbxFrame& frame);
  /// Carries out a request to configure the receiver anew: sends the first command at once, unless it is
  /// already in flight.
  void takeRestart();
  /// Begins the sequence anew. The first command is sent after the current answer period.
  void restart();

  [[nodiscard]] bool isInitialised() const { return m_sequence.isInitialised(); }
  [[nodiscard]] bool isStopped() const { return m_sequence.isStopped(); }
  [[nodiscard]] bool isPortConfirmed() const { return m_sequence.isPortConfirmed(); }
  [[nodiscard]] unsigned initCommandIdx() const { return m_sequence.initCommandIdx(); }
  void confirmPort() { m_sequence.confirmPort(); }
  void unconfirmPort() { m_sequence.unconfirmPort(); }
  /// Returns 1 if a fix can be trusted: the port is confirmed, or receiver control is switched off.
  [[nodiscard]] uint8_t receiverFlag() const { return isStopped() || isPortConfirmed() ? 1 : 0; }

  // -- For the reports

  [[nodiscard]] unsigned ratesTried() const { return m_sequence.ratesTried(); }
  /// Returns the refusals (ACK-NAK) since the start, and the command that the last of them was for.
  [[nodiscard]] uint64_t naks() const { return m_naks; }
  [[nodiscard]] std::string_view lastRefused() const { return m_last_refused; }
  /// Returns the systems that the receiver uses (MON_GNSS), or nothing before it has reported them.
  [[nodiscard]] std::optional<uint8_t> enabledSystems() const;
  /// Returns what the sequence is at, such as "done" or "command 5 of 32: CFG-RATE".
  [[nodiscard]] std::string stepName() const;

  // -- Single commands

  // Each becomes the frame in flight.
  void disableAntennaPower() { sendOther(ubx::DISABLE_ANTENNA_POWER); }
  /// Nothing uses it.
  void disableAntennaPower2() { sendOther(ubx::DISABLE_ANTENNA_POWER2); }
  void enableAntennaPower() { sendOther(ubx::ENABLE_ANTENNA_POWER); }
  void saveAntennaConfig() { sendOther(ubx::SAVE_ANTENNA_CONFIG); }
  void configureBaudrate9600() { sendOther(ubx::BAUDRATE_9600, true); }
  void configureBaudrate19200() { sendOther(ubx::BAUDRATE_19200, true); }
  void configureBaudrate38400() { sendOther(ubx::BAUDRATE_38400, true); }
  void configureBaudrate57600() { sendOther(ubx::BAUDRATE_57600, true); }
  void configureBaudrate115200() { sendOther(ubx::BAUDRATE_115200, true); }
  /// Returns the rate that the receiver gets for a configured one; 19200 for those without a command.
  [[nodiscard]] static uint32_t effectiveBaudrate(uint32_t configured);
  void configureBaudrate(uint32_t effective);
  /// Sends the last CFG-PRT frame back.
  void configureSPI_TxReady();
  /// Sends standby, then GNSS stop.
  void disableReceiver();
  /// Begins a pulse of the receiver's reset line.
  void hardwareResetUblox() {
    if (!isStopped()) m_lines.hardwareResetUblox();
  }
  [[nodiscard]] ReceiverLines& lines() { return m_lines; }

  // -- Answers of the receiver

  void setPortFrame(std::string frame) { m_CFG_PRT_string = std::move(frame); }
  void setMonGnss(const MON_GNSS& record) { m_MON_GNSS = record; }
  void setCfgGnss(CFG_GNSS record, std::string frame);
  /// Prepares the CFG-GNSS frame if the receiver's systems are not the wanted ones. Returns false if nothing
  /// is to be sent.
  [[nodiscard]] bool checkGnssSystem();

 private:
  /// A frame and what a record calls it.
  struct Command {
    Command(std::string_view its_name, std::string its_frame) : name(its_name), frame(std::move(its_frame)) {}
    Command(const UbxCommand& command)  // NOLINT(google-explicit-constructor): it is the same thing
        : Command(command.name, command.frame()) {}
    std::string_view name;
    std::string frame;
  };

  void carryOut(CommandSequence::Action action);
  /// Puts the frame of a SEND in flight and returns it; empty for FINISH.
  [[nodiscard]] std::string getNextCommand(CommandSequence::Action action);
  [[nodiscard]] Command complexCommand(unsigned step);
  void sendOther(Command command, bool is_rate = false);
  void transmit(std::string frame);
  void tryOtherBaudRate();
  void logTimeout(CommandSequence::Action action, unsigned init) const;
  void logRefused() const;

  IGnssInput& m_input;
  ReceiverLines m_lines;
  IReceiverRequests& m_requests;
  IReceiverOwner& m_owner;

  uint32_t m_gnss_augmentation_requested = 0;
  bool m_gnss_augmentation_configured = false;
  std::vector<std::string> m_raw_cmd_post;
  std::string m_navigation_rate;
  bool m_save_config = false;  // nothing sets it: the step is dormant

  CommandSequence m_sequence;
  int64_t m_command_sent_time = 0;          // us
  Command m_command;                        // in flight
  std::vector<std::string_view> m_refused;  // commands of the present sequence
  uint64_t m_naks = 0;
  std::string_view m_last_refused;

  std::string m_CFG_PRT_string;  // last frame received
  std::string m_CFG_GNSS_received;
  std::string m_CFG_GNSS_string;  // to be sent
  CFG_GNSS m_CFG_GNSS;
  MON_GNSS m_MON_GNSS;
};

}  // namespace ecu::koru::gpspub
