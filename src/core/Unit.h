#pragma once

#include <string>
#include <string_view>

namespace ecu::koru::gpspub {

/// Describes this unit and decides what follows from it: from its ECU variables and the path of its
/// receiver's device.
class Unit {
 public:
  /// The unit has a receiver of its own if `hasgnss` is "true".
  Unit(std::string hwvariant, const std::string& hasgnss, std::string hwversion, std::string devicePath);

  /// Returns the device to use: `option`, the simulator's, `configured`, or the one that the hardware has. An
  /// empty text was not given.
  [[nodiscard]] static std::string chooseDevice(const std::string& option, bool simulation,
                                                const std::string& configured, const std::string& hwversion);

  [[nodiscard]] const std::string& hwVariant() const { return m_hw_variant; }
  [[nodiscard]] bool hasReceiver() const { return m_hw_hasgnss; }
  [[nodiscard]] const std::string& devicePath() const { return m_device_path; }
  [[nodiscard]] bool isReceiverOnSpi() const;
  /// Returns true if the device is not one of the hardware's own.
  [[nodiscard]] bool isDeviceRedirected() const;
  /// Returns the processor line of the receiver's reset input.
  [[nodiscard]] std::string resetLine() const;
  /// Returns true if fixes also go to the vehicle's buses, and the unit announces its receiver as a source.
  [[nodiscard]] bool isOnVehicleBuses() const { return m_hw_version == "zpt"; }
  /// Returns true if fixes also go to the unit's own time service.
  [[nodiscard]] bool servesTime() const { return m_hw_version == "qrx" && m_hw_hasgnss; }

 private:
  const std::string m_hw_variant;
  const bool m_hw_hasgnss;
  const std::string m_hw_version;
  const std::string m_device_path;
};

}  // namespace ecu::koru::gpspub
