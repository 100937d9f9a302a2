// satnavd-replay: runs the service in virtual time over a recording of the receiver's link.

#include <algorithm>
#include <cmath>
#include <fstream>
#include <iostream>
#include <iterator>

#include "app/Settings.h"
#include "app/Version.h"
#include "platform/base/Logging.h"
#include "platform/base/Time.h"
#include "sim/gnss/LinkRecording.h"
#include "sim/replay/Options.h"
#include "sim/replay/RecordedBus.h"
#include "sim/replay/ReplayedService.h"
#include "tools/common/Options.h"
#include "tools/common/StandardOutput.h"
#include "tools/common/StopSignals.h"
#include "tools/tap/Lines.h"
#include "tools/tap/Recording.h"

namespace {

using namespace ecu::koru;

constexpr int64_t US_PER_S = 1'000'000;
constexpr int64_t NS_PER_US = 1000;

constexpr const char* DESCRIPTION =
    R"(Runs the service in virtual time over a recording of its receiver's link, as satnavd makes it with the key
record_link, and prints every message that it publishes as one JSON object a line, like satnav-tap --json. The bytes
come at the recorded times and in the recorded portions, so an hour takes a second or two, and the result is the same
each time. Without options the unit is the one of ecu-sim: hwvariant=sim, hwversion=qrx, hasgnss=true, no system
parameter, no time zone. Give the configuration, variables and parameters that the unit had, or with --bus all that
it said.
Whatever the service does to the port otherwise than it did then is reported on standard error, with its time in
seconds since the service began.)";

constexpr const char* FOOTER =
    R"(Exit status: 0; 1 when the recording, the configuration or a file that it names cannot be used, when the output
cannot be written, and with --strict for differences; 2 for wrong options.)";

void complain(const std::string& text) {
  std::cerr << "satnavd-replay: " << text << std::endl;
}

void report_difference(int64_t at_us, const std::string& text) {
  char seconds[40];
  (void)std::snprintf(seconds, sizeof seconds, "%.6f s: ", static_cast<double>(at_us) / US_PER_S);
  complain(seconds + text);
}

/// Writes the messages that are wanted to standard output, each at once, in order with the log.
class Printer {
 public:
  explicit Printer(const sim::ReplayOptions& options)
      : m_topics(options.topics),
        m_from_us(static_cast<int64_t>(options.from * US_PER_S)),
        m_as_recording(options.as_recording) {}

  /// The service begins at `now`.
  void begin(const tap::Moment& now) {
    if (m_as_recording) m_output.write(tap::header_line(now));
  }
  /// Returns false if the output takes no more.
  [[nodiscard]] bool print(const com::MemoryTransport::Record& record, int64_t at_us,
                           const tap::Moment& now) {
    if (at_us < m_from_us || !is_wanted(record.topic)) return true;
    const tap::Arrival arrival{.topic = record.topic,
                               .payload = record.message.payload,
                               .wall_us = now.wall_us,
                               .boot_ns = now.boot_ns,
                               .retained = false};
    return m_output.write(m_as_recording ? tap::message_line(arrival) : tap::json_line(arrival) + "\n");
  }
  /// Returns what failed; empty if nothing did, or the reader went away.
  [[nodiscard]] std::string problem() const { return m_output.problem(); }

 private:
  [[nodiscard]] bool is_wanted(const std::string& topic) const {
    return m_topics.empty() || tool::matches_any(m_topics, topic);
  }
  const std::vector<std::string>& m_topics;
  const int64_t m_from_us;
  const bool m_as_recording;
  tool::StandardOutput m_output;
};

/// Returns nothing, after a message, if the service would not start with it.
std::optional<gpspub::Settings> read_settings(const std::string& path) {
  auto config = std::make_unique<config::Configuration>();
  if (!path.empty()) {
    std::ifstream file(path);
    file.peek();  // a folder can be opened but not read
    if (!file.is_open() || file.bad()) return complain("cannot read " + path), std::nullopt;
    file.clear();
    config::set_config_from_input(config, file);
  }
  gpspub::registerKeys(*config);
  if (!config->verify()) return complain(path + ": the service does not start with it"), std::nullopt;
  return gpspub::readSettings(*config);
}

/// What the unit says: before the service begins, once right after that, and at later times.
struct Said {
  std::vector<sim::Publication> at_start;
  std::vector<sim::Publication> once;
  std::vector<sim::TimedPublication> later{};
  bool is_incomplete = false;
};

int64_t us_of(double seconds) {
  return seconds > 1e9 ? INT64_MAX : std::llround(seconds * US_PER_S);
}

/// Throws sim::BadCommand.
Said said_by_unit(const sim::ReplayOptions& options) {
  sim::Requests requests{.unit = sim::UnitState(true), .said_once = {}};
  requests.add_all(options.unit);
  Said said{requests.unit.everything(), requests.said_once};
  auto changes = options.changes;
  std::ranges::stable_sort(changes, {}, [](const auto& change) { return change.first; });
  for (const auto& [seconds, line] : changes) {
    const sim::Command command = sim::parse_command(line);
    if (sim::concerns_session(command)) throw sim::BadCommand("only for ecu-sim: " + line);
    for (auto& each : requests.unit.apply(command)) said.later.push_back({us_of(seconds), std::move(each)});
  }
  return said;
}

/// The unit said this, and it is what --at adds to. Returns the time since boot at which the service began.
double take_recorded_bus(const sim::ReplayOptions& options, const sim::LinkRecording& link, Said& said) {
  sim::RecordedBus bus = sim::load_recorded_bus(options.bus, link);
  said.is_incomplete = !bus.note.empty();
  if (said.is_incomplete) complain(bus.note);
  said.at_start = std::move(bus.at_start);
  std::ranges::move(bus.later, std::back_inserter(said.later));
  return bus.uptime_s;
}

uint64_t boot_ns() {
  return static_cast<uint64_t>(time_source().boot_ns());
}

int replay(const sim::ReplayOptions& options, const sim::LinkRecording& recording,
           const gpspub::Settings& settings, Said said) {
  const double uptime_s = options.bus.empty() ? options.uptime.value_or(sim::likely_uptime_s(recording))
                                              : take_recorded_bus(options, recording, said);
  sim::Differences differences(report_difference);
  Printer printer(options);
  sim::ReplayedService service(
      recording, differences,
      [&printer](const com::MemoryTransport::Record& record, int64_t at_us, int64_t wall_us) {
        return printer.print(record, at_us, {wall_us, boot_ns()});
      },
      uptime_s);
  printer.begin({time_source().wall_ns() / NS_PER_US, boot_ns()});
  service.say(said.at_start);
  for (auto& [at_us, each] : said.later) service.say_at(at_us, std::move(each));
  if (const std::string problem = service.start(options, settings); !problem.empty())
    return complain(problem), tool::EXIT_FAILED;
  service.say(said.once);
  service.run(us_of(options.to));
  if (const std::string problem = printer.problem(); !problem.empty())
    return complain(problem), tool::EXIT_FAILED;
  if (differences.count() > 0)
    complain(std::to_string(differences.count()) + " differences from the recording");
  const bool is_complete = recording.note.empty() && !said.is_incomplete;
  return options.strict && (differences.count() > 0 || !is_complete) ? tool::EXIT_FAILED : tool::EXIT_DONE;
}

int run(const CLI::App& app, const sim::ReplayOptions& options) try {
  logging::configure_logging(options.service.log_level);
  logging::set_log_mode(logging::LogMode::STDERR);
  Said said = said_by_unit(options);
  const auto settings = read_settings(options.config);
  if (!settings) return tool::EXIT_FAILED;
  const sim::LinkRecording recording = sim::load_link_recordings(options.recordings);
  if (!recording.note.empty())
    complain(recording.note + "; the " + std::to_string(recording.events.size()) +
             " events before are replayed");
  return replay(options, recording, *settings, std::move(said));
} catch (const sim::BadCommand& error) {
  return tool::wrong_options(app, error.what());
} catch (const std::runtime_error& error) {
  complain(error.what());
  return tool::EXIT_FAILED;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app(DESCRIPTION, "satnavd-replay");
  app.footer(FOOTER);
  app.set_version_flag("--version", "satnavd-replay " + gpspub::versionText(), "Print the version and end");
  sim::ReplayOptions options;
  sim::add_options(app, options);
  if (const auto status = tool::parse_options(app, argc, argv)) return *status;
  tool::ignore_write_signals();
  return run(app, options);
}
