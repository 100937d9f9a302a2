#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "input/DeviceFiles.h"
#include "input/GpioLine.h"
#include "platform/base/Time.h"

namespace ecu::koru::gpspub {

/// The receiver's reset input on a processor line, driven through the sysfs GPIO files.
///
/// Service thread only. Failures are logged. If the unit's line cannot be opened, the usual one is
/// pulsed instead; the pulse is skipped only if that fails too. Times come from stopwatch 0.
class ReceiverLines {
 public:
  /// The reset input's line on nearly all hardware.
  static constexpr const char* USUAL_LINE = "197";

  /// `root` holds the GPIO files.
  ReceiverLines(std::string reset_line, std::string root);
  ~ReceiverLines() { finishReset(); }
  ReceiverLines(ReceiverLines&&) = default;
  ReceiverLines& operator=(ReceiverLines&&) = delete;

  /// Exports one line and sets its direction and edge. A failed step does not stop the next one.
  void configureLinuxGpioControl(const std::string& gpio, const std::string& direction,
                                 const std::string& edge) const;
  void configureHardwareResetPin() const;
  /// Pulls the line low. It goes high again 500 ms later, in checkReset().
  void hardwareResetUblox();
  /// Ends the pulse if it is over at `now_us`.
  void checkReset(int64_t now_us);
  /// Waits for the end of the pulse: a shorter one might not reset the receiver.
  void finishReset();
  /// Returns when the pulse is over (us), or NEVER if there is none.
  [[nodiscard]] int64_t resetDue() const { return m_low_line ? m_reset_due : NEVER; }

 private:
  void releaseReset();

  std::unique_ptr<IDeviceFiles> m_files = makeDeviceFiles();
  const std::string m_reset_line;
  const std::string m_root;
  std::unique_ptr<GpioLine> m_low_line;  // null: no pulse
  int64_t m_reset_due = 0;
};

}  // namespace ecu::koru::gpspub
