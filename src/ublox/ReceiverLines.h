#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>

namespace ecu::koru::gpspub {

/// The receiver's reset input on a processor line, driven through the sysfs GPIO files.
///
/// Service thread only. Failures are logged. The pulse is skipped if its line cannot be opened.
class ReceiverLines {
 public:
  /// The reset is on line 121 for `hw_version` "n2" and on 197 for all others. `root` holds the GPIO files.
  explicit ReceiverLines(const std::string& hw_version, std::string root = "/sys/class/gpio");

  /// Exports one line and sets its direction and edge. A failed step does not stop the next one.
  void configureLinuxGpioControl(const std::string& gpio, const std::string& direction,
                                 const std::string& edge) const;
  void configureHardwareResetPin() const;
  /// Holds the line low for 500 ms, then high. Blocks for that time.
  void hardwareResetUblox() const;

 private:
  void exportLine(const std::string& gpio) const;
  static void writeSetting(const std::string& path, const std::string& value);
  [[nodiscard]] std::string valuePath(std::string_view gpio) const;

  const bool m_is_n2;
  const std::string m_root;
};

}  // namespace ecu::koru::gpspub
