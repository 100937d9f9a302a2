#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace ecu::koru::gpspub {

/// What the receiver is to be configured to, and what is known of it. Service thread only.
class UbloxConfig {
 public:
  /// Systems: bit 0 GPS, 1 GLONASS, 2 BeiDou, 3 Galileo.
  void setGnssSystemRequested(uint32_t mask) { m_gnss_system_requested = mask; }
  [[nodiscard]] uint32_t gnssSystemRequested() const { return m_gnss_system_requested; }

  /// Augmentation: bit 0 SBAS, 1 QZSS, 2 IMES. Until it is set, it follows from the systems.
  void setGnssAugmentationRequested(uint32_t mask);
  [[nodiscard]] uint32_t gnssAugmentationRequested() const;

  /// Whole UBX frames that are sent after the initialisation.
  void setRawCmdPost(std::vector<std::string> frames) { m_raw_cmd_post = std::move(frames); }
  [[nodiscard]] const std::vector<std::string>& rawCmdPost() const { return m_raw_cmd_post; }

  /// The receiver counts as configured and nothing is sent to it: simulated input.
  void disableHardwareInit();
  [[nodiscard]] bool isStopped() const { return m_stopped; }

  /// The trust that a fix deserves: 1 when the receiver's configuration is none of our business or its port
  /// was seen at the configured rate.
  [[nodiscard]] uint8_t receiverFlag() const { return m_stopped || m_port_confirmed ? 1 : 0; }

 private:
  uint32_t m_gnss_system_requested = 0x03;
  uint32_t m_gnss_augmentation_requested = 0;
  bool m_gnss_augmentation_configured = false;
  std::vector<std::string> m_raw_cmd_post;
  bool m_initialised = false;
  bool m_stopped = false;
  bool m_port_confirmed = false;
};

}  // namespace ecu::koru::gpspub
