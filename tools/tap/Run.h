#pragma once

#include <memory>
#include <vector>

#include "tools/common/BusConnection.h"
#include "tools/tap/Output.h"
#include "tools/tap/RecordingOptions.h"

namespace ecu::koru::tap {

using Outputs = std::vector<std::shared_ptr<Output>>;

/// Hand messages to the outputs until one of them takes no more, the recording is over, so many seconds have
/// passed (0: no limit), the reader of standard output goes away or a signal comes. Return false if anything
/// failed; they report that on standard error. Call them on the main thread.
[[nodiscard]] bool run_bus(tool::BusConnection& bus, const Outputs& outputs, double seconds);
[[nodiscard]] bool run_recording(const RecordingOptions& options, const Outputs& outputs, double seconds);

/// Publishes a recording until it is over or one of the other ends of the above comes, and reports how many
/// messages that were. Returns false if anything failed.
[[nodiscard]] bool run_replay(tool::BusConnection& bus, const RecordingOptions& options, double seconds);

}  // namespace ecu::koru::tap
