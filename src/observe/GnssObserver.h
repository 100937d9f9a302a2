#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>

#include "platform/com/Topics.h"
#include "platform/com/Transport.h"

namespace ecu::koru::gpspub {

/// The changes that the observer makes in the service, on the transport's delivery thread.
class IGnssControl {
 public:
  virtual ~IGnssControl() = default;
  virtual void setGnssOn(bool on) = 0;
  virtual void setGnssAntennaOn(bool on) = 0;
  /// Sets or clears one bit of the wanted constellations.
  virtual void setGnssSystem(uint32_t bit, bool on) = 0;
  /// Configures the receiver anew, from the first command.
  virtual void restartSequence() = 0;
};

/// Follows the system topics: radio silence, hardware version, receiver and antenna switches, constellations,
/// log flags, the GNSS source. A malformed message is logged and changes nothing.
class GnssObserver final : public com::ISubscriptionObserver {
 public:
  static inline const std::string& m_topic_radio_silence = topic::BLACKOUT_MODE;
  static inline const std::string& m_topic_gnss_antenna_power = topic::PARAMETER_ANTENNA_ON;
  static inline const std::string& m_topic_gnss_system_enable = topic::PARAMETER_GNSS_ON;
  static inline const std::string& m_topic_gnss_system_gps = topic::PARAMETER_GPS;
  static inline const std::string& m_topic_gnss_system_glonass = topic::PARAMETER_GLONASS;
  static inline const std::string& m_topic_gnss_system_galileo = topic::PARAMETER_GALILEO;
  static inline const std::string& m_topic_gnss_system_beidou = topic::PARAMETER_BEIDOU;
  static inline const std::string& m_topic_gnss_source = topic::GNSS_SOURCE;
  static inline const std::string& m_topic_hw_version = topic::HW_VERSION;
  static inline const std::string& m_topic_hw_variant = topic::HW_VARIANT;
  static inline const std::string& m_topic_log_config = topic::LOG_CONFIG;

  explicit GnssObserver(IGnssControl& control) : m_control(control) {}

  /// Delivery thread.
  void message(const std::string& topic, const com::Message& message) override;

  // Any thread.
  [[nodiscard]] bool radioSilence() const { return m_radio_silence; }
  [[nodiscard]] std::string hwVersion() const;

 private:
  void onRadioSilence(const std::string& topic, const com::Message& message);
  void onHwVersion(const std::string& topic, const com::Message& message);
  void onGnssOn(uint8_t value);
  void onAntennaPower(uint8_t value);
  void onLogConfig(const std::string& value);
  static void onGnssSource(const std::string& topic, const com::Message& message);
  void onParameter(const std::string& topic, const com::Message& message);
  void setHwVersion(const std::string& version);

  IGnssControl& m_control;
  std::atomic<bool> m_radio_silence{false};
  mutable std::mutex m_mutex;  // guards m_hw_version
  std::string m_hw_version;
};

}  // namespace ecu::koru::gpspub
