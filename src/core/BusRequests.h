#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>

#include "observe/GnssObserver.h"
#include "platform/base/WakeUp.h"
#include "ublox/IReceiverRequests.h"

namespace ecu::koru::gpspub {

/// The bus's requests to the service. The system parameters fill it at the start, the observer from then on;
/// the service and receiver control read it. A request that changes something ends the service's wait. Any
/// thread may call everything; setGnssOn() is also safe in a signal handler.
class BusRequests final : public IGnssControl, public IReceiverRequests {
 public:
  void setGnssOn(bool on) override { set(m_gnss_on, on); }
  void setGnssAntennaOn(bool on) override { set(m_gnss_antenna_on, on); }
  void setGnssSystem(uint32_t bit, bool on) override {
    on ? m_gnss_system_requested |= bit : m_gnss_system_requested &= ~bit;
  }
  void setRadioSilence(bool on) override { set(m_radio_silence, on); }
  void setHwVersion(const std::string& version) override {
    const std::lock_guard lock(m_mutex);
    m_hw_version = version;
  }
  void restartSequence() override { set(m_restart_requested, true); }
  void setGnssSystemRequested(uint32_t mask) { m_gnss_system_requested = mask; }

  /// Ends the service's waits. Only the service thread waits for it.
  [[nodiscard]] WakeUp& wakeUp() { return m_wake_up; }

  [[nodiscard]] bool gnssOn() const { return m_gnss_on; }
  [[nodiscard]] bool gnssAntennaOn() const override { return m_gnss_antenna_on; }
  [[nodiscard]] uint32_t gnssSystemRequested() const override { return m_gnss_system_requested; }
  [[nodiscard]] bool radioSilence() const override { return m_radio_silence; }
  [[nodiscard]] std::string hwVersion() const override {
    const std::lock_guard lock(m_mutex);
    return m_hw_version;
  }
  [[nodiscard]] bool takeRestart() override { return m_restart_requested.exchange(false); }

 private:
  void set(std::atomic<bool>& request, bool value) {
    if (request.exchange(value) != value) m_wake_up.wake();
  }

  WakeUp m_wake_up;
  std::atomic<bool> m_gnss_on{true};
  std::atomic<bool> m_gnss_antenna_on{true};
  std::atomic<bool> m_radio_silence{false};
  std::atomic<bool> m_restart_requested{false};
  std::atomic<uint32_t> m_gnss_system_requested{0x03};
  mutable std::mutex m_mutex;  // guards m_hw_version
  std::string m_hw_version;
};

}  // namespace ecu::koru::gpspub
