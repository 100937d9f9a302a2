#pragma once

#include <memory>
#include <vector>

#include "tools/tap/Output.h"
#include "tools/tap/RecordingOptions.h"
#include "tools/tap/Viewer.h"

namespace ecu::koru::tap {

/// Makes the outputs of --record, --summary and --prometheus that are asked for. The messages, and whether it
/// is JSON that is written, are the viewer's. `force`: a file that exists is replaced.
/// `transport`: of the bus; it must live until the outputs are closed.
[[nodiscard]] std::vector<std::shared_ptr<Output>> make_recording_outputs(
    const RecordingOptions& options, const Viewer::Options& viewer, bool force,
    const com::ITransportClient& transport);

}  // namespace ecu::koru::tap
