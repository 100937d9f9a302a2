#pragma once

#include <memory>

#include "input/DeviceFiles.h"
#include "input/LinkRecorder.h"
#include "input/TerminalDevice.h"

namespace ecu::koru::gpspub {

/// Returns a device that does the same as `device` and lets the recorder know what passes. If the recorder is
/// null, that is the device itself.
[[nodiscard]] std::unique_ptr<ITerminalDevice> recorded(std::unique_ptr<ITerminalDevice> device,
                                                        std::shared_ptr<LinkRecorder> recorder);

/// Does this for a receiver on the SPI bus. A transfer that sends nothing but fill bytes (0xFF) is a read,
/// and is recorded unless it brought nothing but them; of any other transfer only the sent bytes are
/// recorded, because the service does not use those that come with them. Processor lines are not recorded.
[[nodiscard]] std::unique_ptr<IDeviceFiles> recorded(std::unique_ptr<IDeviceFiles> device,
                                                     std::shared_ptr<LinkRecorder> recorder);

}  // namespace ecu::koru::gpspub
