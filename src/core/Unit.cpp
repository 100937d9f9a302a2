#include "core/Unit.h"

#include <utility>

#include "input/SPI.h"
#include "ublox/ReceiverLines.h"

namespace ecu::koru::gpspub {

namespace {
constexpr const char* N2 = "n2";
constexpr const char* N2_RESET_LINE = "121";
constexpr std::string_view SERIAL_DEVICE = "/dev/ttyFP3";
constexpr std::string_view SIMULATOR_DEVICE = "/dev/ttyUSB0";
}  // namespace

Unit::Unit(std::string hwvariant, const std::string& hasgnss, std::string hwversion, std::string devicePath)
    : m_hw_variant(std::move(hwvariant)),
      m_hw_hasgnss(hasgnss == "true"),
      m_hw_version(std::move(hwversion)),
      m_device_path(std::move(devicePath)) {}

std::string Unit::chooseDevice(const std::string& option, bool simulation, const std::string& configured,
                               const std::string& hwversion) {
  if (!option.empty()) return option;
  if (simulation) return std::string(SIMULATOR_DEVICE);
  if (!configured.empty()) return configured;
  return std::string(hwversion == N2 ? SPI::DEVICE : SERIAL_DEVICE);
}

std::string Unit::resetLine() const {
  return m_hw_version == N2 ? N2_RESET_LINE : ReceiverLines::USUAL_LINE;
}

bool Unit::isReceiverOnSpi() const {
  return m_device_path == SPI::DEVICE;
}

bool Unit::isDeviceRedirected() const {
  return m_device_path != SERIAL_DEVICE && m_device_path != SPI::DEVICE;
}

}  // namespace ecu::koru::gpspub
