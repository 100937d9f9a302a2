// satnav-tap: shows the messages on the bus, decoded.
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <iostream>

#include "platform/base/Time.h"
#include "tools/common/Options.h"
#include "tools/tap/Options.h"

namespace {

using namespace ecu::koru;
using Outputs = std::vector<std::shared_ptr<tap::Output>>;

constexpr const char* DESCRIPTION =
    R"(Shows every message of the unit's bus decoded, one line each: time of arrival (UTC), topic, envelope (protocol
type, body length, time stamp in seconds since boot), fields. Of a signal group: its name, every signal with
its physical value and unit, or why it has none, and the packed bytes. A message that cannot be decoded is shown
with the reason and a hex dump. Ends on Ctrl-C and when nobody reads the output any more.)";

constexpr const char* FOOTER =
    R"(Exit status: 0; 1 when the broker cannot be reached, when the signal database cannot be read, when the output or
a file cannot be written, when the port or link cannot be had, or when --count is given and nothing at all arrives;
2 for wrong options.)";

/// Serves the outputs until one of them takes no more, the time is over, the reader of standard output goes
/// away or a signal comes.
void serve_until_end(const Outputs& outputs, double seconds) {
  constexpr int64_t LONGEST_MS = 60'000;
  const tool::StopSignals signals;
  const int64_t now_ns = time_source().steady_ns();
  const int64_t end_ns = seconds > 0 ? now_ns + static_cast<int64_t>(seconds * 1e9) : tap::Output::NEVER;
  while (true) {
    std::vector<pollfd> waits = {{signals.fd(), POLLIN, 0}, {STDOUT_FILENO, 0, 0}};
    for (const auto& output : outputs) waits.push_back({output->finished().fd(), POLLIN, 0});
    const size_t ends = waits.size();
    int64_t due_ns = end_ns;
    for (const auto& output : outputs) {
      output->add_waits(waits);
      due_ns = std::min(due_ns, output->due_ns());
    }
    const int64_t left_ns = std::max<int64_t>(due_ns - time_source().steady_ns(), 0);
    const int64_t left_ms = left_ns / 1'000'000 + (left_ns % 1'000'000 != 0 ? 1 : 0);
    if (poll(waits.data(), waits.size(), static_cast<int>(std::min(left_ms, LONGEST_MS))) < 0 &&
        errno != EINTR)
      return;
    for (size_t i = 0; i < ends; ++i) {
      if (waits[i].revents != 0) return;
    }
    if (time_source().steady_ns() >= end_ns) return;
    for (const auto& output : outputs) output->serve();
  }
}

/// Closes the outputs. Reports what failed on standard error and then returns false.
bool close(const Outputs& outputs) {
  bool good = true;
  for (const auto& output : outputs) {
    if (output->end()) output->close();
    if (const auto problem = output->problem(); !problem.empty()) {
      std::cerr << "satnav-tap: " << problem << '\n';
      good = false;
    }
  }
  return good;
}

bool subscribe(com::ITransportClient& transport, const Outputs& outputs) {
  for (const auto& output : outputs) {
    for (const auto& topic : output->topics()) {
      if (transport.subscribe(topic, output, 0)) continue;
      std::cerr << "satnav-tap: cannot subscribe to " << topic << '\n';
      return false;
    }
  }
  return true;
}

int run(const CLI::App& app, const tap::Options& options) {
  const auto viewer = std::make_shared<tap::Viewer>(options.viewer);
  // The viewer comes last: then every shown message is in the log even if --count ends the program.
  Outputs outputs;
  if (!options.can_log.file.empty())
    outputs.push_back(std::make_shared<tap::CanLog>(options.can_log, options.force));
  for (const auto& [format, file] : options.exports)
    outputs.push_back(std::make_shared<tap::Export>(format, file, options.force));
  for (const auto& output : tap::make_nmea_outputs(options.nmea)) outputs.push_back(output);
  if (!options.nmea.print) outputs.push_back(viewer);

  const auto bus = tool::BusConnection::create(options.bus);
  if (bus == nullptr) return tool::EXIT_WRONG_OPTIONS;
  if (!tool::use_signal_database(app, options.signal_database)) return tool::EXIT_FAILED;
  const bool opened =
      std::all_of(outputs.begin(), outputs.end(), [](const auto& output) { return output->open(); });
  if (!opened || !subscribe(bus->transport(), outputs)) {
    close(outputs);
    return tool::EXIT_FAILED;
  }
  if (!bus->open()) return bus->close(tool::EXIT_FAILED);
  serve_until_end(outputs, options.seconds);
  const bool nothing_came = options.viewer.count > 0 && viewer->seen() == 0;
  return bus->close(close(outputs) && !nothing_came ? tool::EXIT_DONE : tool::EXIT_FAILED);
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app(DESCRIPTION, "satnav-tap");
  app.footer(FOOTER);
  tap::Options options;
  tap::add_options(app, options);
  if (const auto status = tool::parse_options(app, argc, argv)) return *status;
  tool::ignore_broken_pipes();
  return run(app, options);
}
