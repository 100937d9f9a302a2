#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "core/FixPublisher.h"
#include "core/ReceiverWatch.h"
#include "core/RunControl.h"
#include "core/SystemClock.h"
#include "core/Unit.h"
#include "input/IGnssInput.h"
#include "input/LinkRecorder.h"
#include "nmea/EpochAssembly.h"
#include "platform/com/Transport.h"
#include "ublox/AntennaSupervision.h"
#include "ublox/IReceiverOwner.h"
#include "ublox/UbloxConfig.h"
#include "ublox/UbxReception.h"

namespace ecu::koru::gpspub {

/// How the unit's own hardware is reached. Tests replace its parts.
struct UnitHardware {
  std::unique_ptr<IGnssInput> input = nullptr;       ///< null: the one that the device path selects
  std::string gpio_root = "/sys/class/gpio";         ///< folder of the processor lines
  std::shared_ptr<LinkRecorder> recorder = nullptr;  ///< records the selected input; null: nothing does
};

/// Receiver mode: turns the bytes of the unit's own receiver into fixes, and configures and supervises the
/// receiver. Owned by the service. Service thread.
class ReceiverMode final : public IReportedMode, private IEpochOwner, private IReceiverOwner {
 public:
  ReceiverMode(std::shared_ptr<com::ITransportClient> transport, const Unit& unit, BusRequests& requests,
               RunControl& run, FixPublisher& publisher, UnitHardware hardware);

  /// Returns after GNSS is switched off or the service is stopped.
  void runUblox();
  /// Opens the receiver's device.
  bool connect();
  [[nodiscard]] bool isConnected() { return m_input->isConnected(); }
  void disconnect(CloseReason reason) override;

  // IReportedMode
  [[nodiscard]] FixFacts fixFacts() const override;
  void fillHealth(pb::GnssHealth& health) const override;

  // Settings, before runUblox().
  /// Sets the rate in bit/s, in the input too. Returns false if the input does not support it.
  bool setBaudRate(uint32_t baud);
  /// From now on nothing is sent to the receiver.
  void disableHardwareInit();
  void setSimulation(bool on) { m_simulation = on; }
  [[nodiscard]] bool simulation() const { return m_simulation; }
  [[nodiscard]] UbloxConfig& ubloxConfig() { return m_ublox_config; }
  [[nodiscard]] AntennaSupervision& antenna() { return m_antenna; }
  [[nodiscard]] SystemClock& systemClock() { return m_system_clock; }

 private:
  void logInputWarnings() const;
  void enterReceiverLoop();
  void leaveReceiverLoop();
  void connectOrWait();
  void receive();
  void processAndPublish(bool has_data);
  [[nodiscard]] bool readNewData(int timeout_us);
  [[nodiscard]] Reception received() const;
  void processNewData();
  void processUblox();
  void sendFrameIfDue(bool more_received);
  void sendGpsOnCan();
  void sendAndCountFrame();
  [[nodiscard]] bool timeoutToSendFrame(int64_t open_due);
  [[nodiscard]] int64_t nextDeadline() const;
  [[nodiscard]] bool isNoCommunication() const;
  [[nodiscard]] int64_t noCommunicationDue() const;
  void superviseReceiver();
  void checkUbloxInitialisation();
  void deviceGone();

  // IEpochOwner
  void publishGnssData() override;
  void checkSetSystemTime() override { m_system_clock.checkSetSystemTime(m_epoch.info()); }

  // IReceiverOwner
  void setUtcValidFlags(uint8_t flags) override { m_epoch.info().m_utc_valid_flags = flags; }

  const std::shared_ptr<com::ITransportClient> m_transport_client;
  const Unit& m_unit;
  const BusRequests& m_requests;
  RunControl& m_run;
  FixPublisher& m_publisher;

  const std::unique_ptr<IGnssInput> m_input;
  EpochAssembly m_epoch;
  SystemClock m_system_clock;
  UbloxConfig m_ublox_config;
  AntennaSupervision m_antenna;
  UbxReception m_ubx_reception;

  const int64_t m_frame_period_us = 3'000'000;
  uint32_t m_bytes_received = 0;

  uint64_t m_frames_received = 0;
  uint64_t m_unsent = 0;  // positions, for want of a broker
  ReceiverWatch m_watch;
  // Stopwatch 0, us.
  int64_t m_data_time_us = 0;
  int64_t m_connect_time_us = 0;
  int64_t m_last_ublox_time = 0;
  int64_t m_earliest_open_us = 0;  // no open before: 1 s after that of a device that went away

  bool m_device_gone_logged = false;
  bool m_disable_hw_init = false;
  bool m_simulation = false;
  uint32_t m_baud_rate = 9600;
  uint32_t m_comm_retries = 0;
};

}  // namespace ecu::koru::gpspub
