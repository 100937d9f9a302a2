#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <string>

#include "platform/com/Topics.h"
#include "tools/tap/ListenAddress.h"
#include "tools/tap/Scatter.h"

namespace ecu::koru::tap {

/// The options of recordings and of the figures.
struct RecordingOptions {
  std::string record;           ///< the file to write; empty: none
  std::string read;             ///< the recording that takes the place of the bus; empty: none
  std::string replay;           ///< the recording to publish; empty: none
  std::optional<double> speed;  ///< of read and replay, relative to the recording
  bool loop = false;            ///< of replay

  bool summary = false;
  std::optional<Position> reference;
  std::optional<ListenAddress> prometheus;  ///< of the server, if there is to be one
  std::string health_topic = topic::GNSS_HEALTH;

  /// Returns true if the messages themselves are not shown.
  [[nodiscard]] bool replaces_viewer() const { return summary || prometheus; }
};

/// Adds --record, --read, --replay, --speed, --loop, --summary, --reference, --prometheus and --health-topic.
/// `options` must outlive `app`.
void add_recording_options(CLI::App& app, RecordingOptions& options);

/// Returns why the given options, of every output, do not go together, such as "--loop requires --replay";
/// empty if they do.
[[nodiscard]] std::string recording_conflict(const CLI::App& app);

}  // namespace ecu::koru::tap
