#include "tools/tap/RecordingOutputs.h"

#include "tools/tap/MetricsServer.h"
#include "tools/tap/Recorder.h"
#include "tools/tap/Summary.h"

namespace ecu::koru::tap {

std::vector<std::shared_ptr<Output>> make_recording_outputs(const RecordingOptions& options,
                                                            const Viewer::Options& viewer, bool force,
                                                            const com::ITransportClient& transport) {
  std::vector<std::shared_ptr<Output>> outputs;
  if (!options.record.empty())
    outputs.push_back(std::make_shared<Recorder>(
        Recorder::Options{.file = options.record, .replace = force, .topics = viewer.topics}));
  if (options.summary)
    outputs.push_back(std::make_shared<Summary>(
        Summary::Options{.json = viewer.json, .reference = options.reference, .topics = viewer.topics}));
  if (options.prometheus)
    outputs.push_back(std::make_shared<MetricsServer>(
        MetricsServer::Options{.address = *options.prometheus,
                               .health_topic = options.health_topic,
                               .reference = options.reference,
                               .topics = viewer.topics,
                               .bus = options.read.empty() ? &transport : nullptr}));
  return outputs;
}

}  // namespace ecu::koru::tap
