// satnav-tap: shows the messages on the bus, decoded.
#include "tools/common/Options.h"
#include "tools/tap/Options.h"
#include "tools/tap/RecordingOutputs.h"
#include "tools/tap/Run.h"
#include "tools/tap/SameFile.h"
#include "tools/tap/ValueTexts.h"
#include "tools/tap/live/Live.h"

namespace {

using namespace ecu::koru;

constexpr const char* DESCRIPTION =
    R"(Shows every message of the unit's bus decoded, one line each: time of arrival (UTC), topic, envelope (protocol
type, body length, time stamp in seconds since boot), fields. Of a signal group: its name, every signal with
its physical value and unit, or why it has none, and the packed bytes. A message that cannot be decoded is shown
with the reason and a hex dump. Ends on Ctrl-C and when nobody reads the output any more. With --live, the state of the
unit is on the whole terminal instead. --record keeps the messages in a file; --read takes them from it in place of the
bus, and --replay publishes them again.)";

constexpr const char* FOOTER =
    R"(Exit status: 0; 1 when the broker cannot be reached, when the signal database or a recording cannot be read, when
the output or a file cannot be written, when a port or link cannot be had, when --live has no terminal, or when --count
is given and nothing at all arrives; 2 for wrong options.)";

int run(const CLI::App& app, const tap::Options& options) {
  const auto& recording = options.recording;
  const auto bus = tool::BusConnection::create(options.bus);
  if (bus == nullptr) return tool::EXIT_WRONG_OPTIONS;
  const auto viewer = std::make_shared<tap::Viewer>(options.viewer);
  // The viewer comes last: then every shown message is in the log even if --count ends the program.
  tap::Outputs outputs;
  if (!options.can_log.file.empty())
    outputs.push_back(std::make_shared<tap::CanLog>(options.can_log, options.force));
  for (const auto& [format, file] : options.exports)
    outputs.push_back(std::make_shared<tap::Export>(format, file, options.force));
  for (const auto& output : tap::make_nmea_outputs(options.nmea)) outputs.push_back(output);
  for (const auto& output :
       tap::make_recording_outputs(recording, options.viewer, options.force, bus->transport()))
    outputs.push_back(output);
  const auto screen = options.live.on ? std::make_shared<tap::live::Live>(options.viewer.topics) : nullptr;
  if (screen != nullptr) {
    outputs.push_back(screen);
  } else if (!options.nmea.print && !recording.replaces_viewer()) {
    outputs.push_back(viewer);
  }

  if (!tool::use_signal_database(app, options.signal_database)) return tool::EXIT_FAILED;
  tap::ValueTexts::use(options.signal_database);
  if (screen != nullptr && recording.read.empty()) screen->watch(bus->transport(), bus->broker());
  bool good = false;
  if (!recording.read.empty()) {
    good = tap::run_recording(recording, outputs, options.seconds);
  } else if (!recording.replay.empty()) {
    good = tap::run_replay(*bus, recording, options.seconds);
  } else {
    good = tap::run_bus(*bus, outputs, options.seconds);
  }
  const bool nothing_came = options.viewer.count > 0 && viewer->seen() == 0;
  return bus->close(good && !nothing_came ? tool::EXIT_DONE : tool::EXIT_FAILED);
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app(DESCRIPTION, "satnav-tap");
  app.footer(FOOTER);
  tap::Options options;
  tap::add_options(app, options);
  if (const auto status = tool::parse_options(app, argc, argv)) return *status;
  if (const auto conflict = tap::recording_conflict(app); !conflict.empty())
    return tool::wrong_options(app, conflict);
  if (const auto shared = tap::shared_file(options); !shared.empty()) return tool::wrong_options(app, shared);
  tool::ignore_write_signals();
  return run(app, options);
}
