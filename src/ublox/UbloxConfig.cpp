#include "ublox/UbloxConfig.h"

namespace ecu::koru::gpspub {

namespace {
constexpr uint32_t GPS = 0x01;
constexpr uint32_t SBAS_AND_QZSS = 0x03;
}  // namespace

void UbloxConfig::setGnssAugmentationRequested(uint32_t mask) {
  m_gnss_augmentation_requested = mask;
  m_gnss_augmentation_configured = true;
}

uint32_t UbloxConfig::gnssAugmentationRequested() const {
  if (m_gnss_augmentation_configured) return m_gnss_augmentation_requested;
  return (m_gnss_system_requested & GPS) != 0 ? SBAS_AND_QZSS : 0;
}

void UbloxConfig::disableHardwareInit() {
  m_initialised = true;
  m_stopped = true;
}

}  // namespace ecu::koru::gpspub
