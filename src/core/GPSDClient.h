#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "core/SystemClock.h"
#include "input/IGnssInput.h"
#include "nmea/EpochAssembly.h"
#include "observe/GnssIcanObserver.h"
#include "observe/GnssObserver.h"
#include "observe/TimeZoneObserver.h"
#include "platform/base/ServiceManager.h"
#include "platform/com/Transport.h"
#include "publish/IGnssPublish.h"
#include "ublox/AntennaSupervision.h"
#include "ublox/IReceiverOwner.h"
#include "ublox/UbloxConfig.h"
#include "ublox/UbxReception.h"

namespace ecu::koru::gpspub {

/// Stand-ins for the unit's own hardware.
struct UnitHardware {
  std::unique_ptr<IGnssInput> input = nullptr;  ///< null: the one that the device path selects
  std::string gpio_root = "/sys/class/gpio";    ///< folder of the processor lines
};

/// The service: owns the receiver input, the epoch, the publishers and the observers, and runs the loop that
/// takes a byte from the receiver to a message on the bus.
///
/// One object per process, made and run by the main thread. stop() may be called from a signal handler and
/// any thread; everything else belongs to the main thread.
class GPSDClient final : private IEpochOwner, private IReceiverOwner, private IGnssControl {
 public:
  /// If `hasgnss` is "true", the unit has a receiver of its own at `devicePath`.
  GPSDClient(std::shared_ptr<com::ITransportClient>& transportClient, const std::string& hwvariant,
             const std::string& hasgnss, const std::string& hwversion, const std::string& devicePath,
             UnitHardware hardware = UnitHardware());
  ~GPSDClient() override;
  GPSDClient(const GPSDClient&) = delete;
  GPSDClient& operator=(const GPSDClient&) = delete;

  /// Runs the service and returns after stop().
  void run();
  /// Ends run(). Every wait of the service ends within 200 ms.
  void stop();

  /// Opens the receiver's device.
  bool connect();
  /// Closes the device. The receiver is then found and configured anew.
  void disconnect() override;
  [[nodiscard]] bool isConnected();

  /// Reads the system parameters at the start. One that cannot be used leaves its built-in value.
  void readSysparams();
  /// Announces this unit's receiver on "system/gnss/source", on hardware "zpt" only. Returns false if the
  /// message cannot be serialized.
  bool publishGnssSource();
  /// Follows the log flags on the bus.
  void enableLoggingControl();
  /// Follows the receiver's switches and constellations on the bus.
  void enableMqttSystemSelection();

  // Settings, before run().
  /// Sets the rate in bit/s, in the input too. Returns false if the input does not support it.
  bool setBaudRate(uint32_t baud);
  /// From now on nothing is sent to the receiver.
  void disableHardwareInit();
  void setSystemTimeEnabled(bool on) { m_system_clock.enableSetting(on); }
  /// If on, radio silence on the bus switches the antenna off and stops the receiver.
  void setRadioSilenceConfigured(bool on) { m_antenna.setRadioSilenceConfigured(on); }
  /// run() reports its start, its progress and its end to `manager`, which is not null.
  void setServiceManager(std::unique_ptr<ServiceManager> manager) { m_service_manager = std::move(manager); }
  [[nodiscard]] bool simulation() const { return m_simulation; }
  [[nodiscard]] UbloxConfig& ubloxConfig() { return m_ublox_config; }

 private:
  enum class ConnectionState { NOT_CONNECTED = 0, CONNECTED = 2 };

  // The modes. Each returns after GNSS is switched off or the service is stopped.
  void runUblox();
  void runIcan();
  [[nodiscard]] bool inMode() const { return m_running && m_gnss_on; }
  /// Reports the state of the position about to be published to the service manager.
  void reportStatus(int32_t gnss_status);
  /// On every pass, reports progress to the service manager and logs how many records were kept back.
  void passBegins() const;
  /// Sleeps, but at most until stop().
  void waitWhileRunning(int64_t us) const;

  // GPSDClientBus.cpp
  void subscribeObservers();
  /// Unsubscribes the topics that end with run(), in their order.
  void unsubscribeObservers();
  void unsubscribeAll();
  void subscribeIcanMessages();
  void sendFrameUsingIcan();

  // GPSDClientReceiver.cpp: receiver mode.
  void logInputWarnings() const;
  void enterReceiverLoop();
  void leaveReceiverLoop();
  void connectOrWait();
  void receive();
  [[nodiscard]] bool readNewData(int timeout_us);
  void processNewData();
  void processUblox();
  void sendFrameIfDue(bool more_received);
  void sendGpsOnCan();
  void sendAndCountFrame();
  void timeoutToSendFrame();
  [[nodiscard]] bool isNoCommunication() const;
  [[nodiscard]] int64_t noCommunicationThreshold() const;
  void superviseReceiver();
  void checkUbloxInitialisation();
  void deviceGone();

  // IEpochOwner
  void publishGnssData() override;
  void checkSetSystemTime() override;
  void fillTimeZone(GnssInfo& info) const;

  // IReceiverOwner
  [[nodiscard]] bool radioSilenceRequested() const override { return m_gnss_observer->radioSilence(); }
  [[nodiscard]] std::string hwVersionSignal() const override { return m_gnss_observer->hwVersion(); }
  void setUtcValidFlags(uint8_t flags) override { m_epoch.info().m_utc_valid_flags = flags; }

  // IGnssControl, delivery thread
  void setGnssOn(bool on) override { m_gnss_on = on; }
  void setGnssAntennaOn(bool on) override { m_antenna.setGnssAntennaOn(on); }
  void setGnssSystem(uint32_t bit, bool on) override { m_ublox_config.setGnssSystemRequested(bit, on); }
  void restartSequence() override { m_ublox_config.requestRestart(); }

  std::atomic<bool> m_running{true};
  std::atomic<bool> m_gnss_on{true};
  ConnectionState m_connection_state = ConnectionState::NOT_CONNECTED;
  const int64_t m_frame_period_us = 3'000'000;
  std::unique_ptr<ServiceManager> m_service_manager = std::make_unique<ServiceManager>();

  std::shared_ptr<com::ITransportClient> m_transport_client;
  const std::string m_hw_variant;
  const std::string m_hw_version;
  const bool m_hw_hasgnss;
  const std::string m_device_path;

  std::unique_ptr<IGnssInput> m_input;
  EpochAssembly m_epoch;
  SystemClock m_system_clock;
  UbloxConfig m_ublox_config;
  AntennaSupervision m_antenna;
  UbxReception m_ubx_reception;
  std::unique_ptr<IGnssPublish> m_publish_mqtt;
  std::unique_ptr<IGnssPublish> m_publish_can;      // null: this hardware has no vehicle buses
  std::unique_ptr<IGnssPublish> m_publish_systime;  // null: this unit does not serve the time
  std::shared_ptr<GnssObserver> m_gnss_observer;
  std::shared_ptr<GnssIcanObserver> m_gnss_ican_observer;
  std::shared_ptr<TimeZoneObserver> m_time_zone_observer;

  uint32_t m_bytes_received = 0;
  // Stopwatch 0, us.
  int64_t m_data_time_us = 0;
  int64_t m_connect_time_us = 0;
  int64_t m_last_ublox_time = 0;
  int64_t m_earliest_open_us = 0;  // after an unexpected close, opens are a second apart

  bool m_device_gone_logged = false;
  bool m_observers_unsubscribed = false;
  bool m_disable_hw_init = false;
  bool m_simulation = false;
  uint32_t m_baud_rate = 9600;
  unsigned m_gnss_rate_hz = 1;
  uint32_t m_comm_retries = 0;
};

}  // namespace ecu::koru::gpspub
