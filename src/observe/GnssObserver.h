#pragma once

#include <string>

#include "observe/GnssParameters.h"
#include "platform/com/Topics.h"
#include "platform/com/Transport.h"

namespace ecu::koru::gpspub {

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
  static inline const std::string& m_topic_hw_variant = topic::HW_VARIANT;  // nothing uses it
  static inline const std::string& m_topic_log_config = topic::LOG_CONFIG;

  explicit GnssObserver(IGnssControl& control) : m_control(control) {}

  /// Delivery thread.
  void message(const std::string& topic, const com::Message& message) override;

 private:
  void onRadioSilence(const std::string& topic, const com::Message& message);
  void onHwVersion(const std::string& topic, const com::Message& message);
  void onLogConfig(const std::string& value);
  static void onGnssSource(const std::string& topic, const com::Message& message);
  void onParameter(const std::string& topic, const com::Message& message);

  IGnssControl& m_control;
};

}  // namespace ecu::koru::gpspub
