#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "core/SystemClock.h"
#include "input/IGnssInput.h"
#include "nmea/EpochAssembly.h"
#include "observe/TimeZoneObserver.h"
#include "platform/Transport.h"
#include "publish/IGnssPublish.h"
#include "ublox/UbloxConfig.h"

namespace ecu::koru::gpspub {

/// The service: owns the receiver input, the epoch, the publishers and the observers, and runs the loop that
/// takes a byte from the receiver to a message on the bus.
///
/// One object a process, made and run by the main thread. stop() may be called from a signal handler and any
/// thread; everything else belongs to the main thread.
class GPSDClient final : private IEpochOwner {
 public:
  /// `hasgnss` "true": the unit has a receiver of its own at `devicePath`. `input` replaces the one that the
  /// path selects.
  GPSDClient(std::shared_ptr<com::ITransportClient>& transportClient, const std::string& hwvariant,
             const std::string& hasgnss, const std::string& hwversion, const std::string& devicePath,
             std::unique_ptr<IGnssInput> input = nullptr);
  ~GPSDClient() override;
  GPSDClient(const GPSDClient&) = delete;
  GPSDClient& operator=(const GPSDClient&) = delete;

  /// Returns when stopped.
  void run();
  /// Ends run(): any wait of the service ends within 200 ms.
  void stop();

  /// Opens the receiver's device.
  bool connect();
  /// Closes it.
  void disconnect();
  [[nodiscard]] bool isConnected();

  // Settings, before run().
  /// Handed to the input too; false when that does not support the rate.
  bool setBaudRate(uint32_t baud);
  /// Nothing is sent to the receiver.
  void disableHardwareInit();
  void setSystemTimeEnabled(bool on) { m_system_clock.enableSetting(on); }
  /// Antenna off and receiver stopped while the vehicle asks for radio silence.
  void setRadioSilenceConfigured(bool on) { m_radio_silence_configured = on; }
  [[nodiscard]] bool simulation() const { return m_simulation; }
  [[nodiscard]] UbloxConfig& ubloxConfig() { return m_ublox_config; }

 private:
  enum class ConnectionState { NOT_CONNECTED = 0, CONNECTED = 2 };

  // The modes; each returns when GNSS is switched off or the service is stopped.
  void runUblox();
  void runIcan();
  [[nodiscard]] bool inMode() const { return m_running && m_gnss_on; }
  /// Sleeps, but not beyond a stop().
  void waitWhileRunning(int64_t us) const;

  // GPSDClientReceiver.cpp: receiver mode.
  void logInputWarnings() const;
  void enterReceiverLoop();
  void leaveReceiverLoop();
  void connectOrWait();
  void receive();
  [[nodiscard]] bool readNewData(int timeout_us);
  void processNewData();
  void sendFrameIfDue();
  void frameSent();
  void timeoutToSendFrame();
  [[nodiscard]] bool isNoCommunication() const;
  void deviceGone();

  // IEpochOwner
  void publishGnssData() override;
  void checkSetSystemTime() override;
  void fillTimeZone(GnssInfo& info) const;

  std::atomic<bool> m_running{true};
  std::atomic<bool> m_gnss_on{true};
  ConnectionState m_connection_state = ConnectionState::NOT_CONNECTED;
  const int64_t m_frame_period_us = 3'000'000;

  std::shared_ptr<com::ITransportClient> m_transport_client;
  const std::string m_hw_variant;
  const std::string m_hw_version;
  const bool m_hw_hasgnss;
  const std::string m_device_path;

  std::unique_ptr<IGnssInput> m_input;
  EpochAssembly m_epoch;
  SystemClock m_system_clock;
  UbloxConfig m_ublox_config;
  std::unique_ptr<IGnssPublish> m_publish_mqtt;
  std::shared_ptr<TimeZoneObserver> m_time_zone_observer;

  uint32_t m_bytes_received = 0;
  uint32_t m_ublox_frames_received = 0;
  // Stopwatch 0, us.
  int64_t m_data_time_us = 0;
  int64_t m_connect_time_us = 0;
  int64_t m_last_ublox_time = 0;
  int64_t m_earliest_open_us = 0;  // after an unexpected close, opens are a second apart

  bool m_device_gone_logged = false;
  bool m_radio_silence_configured = true;
  bool m_disable_hw_init = false;
  bool m_simulation = false;
  uint32_t m_baud_rate = 9600;
  uint32_t m_comm_retries = 0;
};

}  // namespace ecu::koru::gpspub
