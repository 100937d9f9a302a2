#pragma once

#include <memory>
#include <string>

#include "input/DeviceFiles.h"

namespace ecu::koru::gpspub {

/// The receiver's reset input on a processor line, driven through the sysfs GPIO files.
///
/// Service thread only. Failures are logged. If the unit's line cannot be opened, the usual one is
/// pulsed instead; the pulse is skipped only if that fails too.
class ReceiverLines {
 public:
  /// The reset input's line on nearly all hardware.
  static constexpr const char* USUAL_LINE = "197";

  /// `root` holds the GPIO files.
  ReceiverLines(std::string reset_line, std::string root);

  /// Exports one line and sets its direction and edge. A failed step does not stop the next one.
  void configureLinuxGpioControl(const std::string& gpio, const std::string& direction,
                                 const std::string& edge) const;
  void configureHardwareResetPin() const;
  /// Holds the line low for 500 ms, then high. Blocks for that time.
  void hardwareResetUblox() const;

 private:
  std::unique_ptr<IDeviceFiles> m_files = makeDeviceFiles();
  const std::string m_reset_line;
  const std::string m_root;
};

}  // namespace ecu::koru::gpspub
