#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "core/BusRequests.h"
#include "core/CanInputMode.h"
#include "core/FixPublisher.h"
#include "core/ReceiverMode.h"
#include "core/RunControl.h"
#include "core/Unit.h"
#include "observe/GnssObserver.h"
#include "platform/base/ServiceManager.h"
#include "platform/com/Transport.h"

namespace ecu::koru::gpspub {

/// The service: joins the two modes, the publishers and the observers, and runs the mode that the unit has.
///
/// One object per process, made and run by the main thread. stop() may be called from a signal handler and
/// any thread; everything else belongs to the main thread.
class GPSDClient {
 public:
  GPSDClient(std::shared_ptr<com::ITransportClient>& transportClient, const std::string& hwvariant,
             const std::string& hasgnss, const std::string& hwversion, const std::string& devicePath,
             UnitHardware hardware = UnitHardware());
  ~GPSDClient();
  GPSDClient(const GPSDClient&) = delete;
  GPSDClient& operator=(const GPSDClient&) = delete;

  /// Runs the service and returns after stop().
  void run();
  /// Ends run(). The service's waits end at once. Only a reset pulse, catching up on SPI and the wait for
  /// a GPIO file may take 0.5 s, and the pause after a change of baud rate 0.1 s.
  void stop() { m_run.stop(); }

  /// Closes the receiver's device.
  void disconnect() { m_receiver_mode.disconnect(CloseReason::MODE_ENDS); }

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
  bool setBaudRate(uint32_t baud) { return m_receiver_mode.setBaudRate(baud); }
  /// From now on nothing is sent to the receiver.
  void disableHardwareInit() { m_receiver_mode.disableHardwareInit(); }
  void setSystemTimeEnabled(bool on) { m_receiver_mode.systemClock().enableSetting(on); }
  /// If on, radio silence on the bus switches the antenna off and stops the receiver.
  void setRadioSilenceConfigured(bool on) { m_receiver_mode.antenna().setRadioSilenceConfigured(on); }
  /// run() reports its start, its progress and its end to `manager`, which is not null.
  void setServiceManager(std::unique_ptr<ServiceManager> manager) {
    m_run.reports().setServiceManager(std::move(manager));
  }
  /// run() publishes the state of the service on `topic`; `version` is part of it.
  void setHealthTopic(std::string topic, std::string version) {
    m_run.reports().setHealthTopic(std::move(topic), std::move(version));
  }
  [[nodiscard]] bool simulation() const { return m_receiver_mode.simulation(); }
  [[nodiscard]] UbloxConfig& ubloxConfig() { return m_receiver_mode.ubloxConfig(); }
  [[nodiscard]] BusRequests& requests() { return m_requests; }

 private:
  void subscribeObservers();
  /// Unsubscribes the topics that are needed only while run() runs, in the order of subscription.
  void unsubscribeObservers();
  void unsubscribeAll();

  const std::shared_ptr<com::ITransportClient> m_transport_client;
  const Unit m_unit;
  BusRequests m_requests;
  RunControl m_run;
  FixPublisher m_publisher;
  ReceiverMode m_receiver_mode;
  CanInputMode m_can_input_mode;
  const std::shared_ptr<GnssObserver> m_gnss_observer;
  bool m_observers_unsubscribed = false;
  unsigned m_gnss_rate_hz = 1;  // nothing uses it
};

}  // namespace ecu::koru::gpspub
