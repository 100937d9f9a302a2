// satnav-tap: shows the messages on the bus, decoded.
#include <mosquitto.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <iostream>

#include "platform/Time.h"
#include "tools/common/Options.h"
#include "tools/tap/Viewer.h"

namespace {

using namespace ecu::koru;

struct Options {
  tool::BusOptions bus{.program = "satnav-tap"};
  std::vector<std::string> topics{"system/#", "rt/#", "systime/#"};
  tap::Viewer::Style style;
  double seconds = 0;  // 0: no limit
};

constexpr const char* DESCRIPTION =
    "Shows every message of the unit's bus decoded, one line each: time of arrival (UTC), topic, envelope "
    "(protocol\n"
    "type, body length, time stamp in seconds since boot), fields. A message that cannot be decoded is shown "
    "with the\n"
    "reason and a hex dump. Ends on Ctrl-C and when nobody reads the output any more.";

constexpr const char* FOOTER =
    "Exit status: 0; 1 when the broker cannot be reached, or when --count is given and nothing at all "
    "arrives; 2 for\n"
    "wrong options.";

std::string check_filter(const std::string& filter) {
  const bool good = mosquitto_sub_topic_check2(filter.data(), filter.size()) == MOSQ_ERR_SUCCESS;
  return good ? std::string() : "not an MQTT topic filter: " + filter;
}

void add_options(CLI::App& app, Options& options) {
  tool::add_bus_options(app, options.bus);
  app.add_option("--topic", options.topics, "An MQTT topic filter, repeatable [system/# rt/# systime/#]")
      ->check(CLI::Validator(check_filter, "FILTER"))
      ->type_size(1)
      ->allow_extra_args(false);
  app.add_flag("--json", options.style.json,
               "One JSON object a line: time, arrival_ns, topic, retained, envelope, type, body");
  app.add_flag("--sentences", options.style.sentences, "Show the NMEA sentences of each fix below its line");
  app.add_option("--count", options.style.count, "End after so many messages")->check(CLI::PositiveNumber);
  app.add_option("--seconds", options.seconds, "End after so many seconds")->check(CLI::Range(0.001, 1e9));
}

/// Waits for the end: count reached, output gone, time over or a signal.
void wait_for_end(const tap::Viewer& viewer, const tool::StopSignals& signals, double seconds) {
  const int64_t end_ns = time_source().steady_ns() + static_cast<int64_t>(seconds * 1e9);
  pollfd waits[] = {{viewer.finished().fd(), POLLIN, 0}, {signals.fd(), POLLIN, 0}, {STDOUT_FILENO, 0, 0}};
  while (true) {
    int timeout_ms = -1;
    if (seconds > 0) {
      const int64_t left_ms = (end_ns - time_source().steady_ns() + 999'999) / 1'000'000;
      if (left_ms <= 0) return;
      timeout_ms = static_cast<int>(std::min<int64_t>(left_ms, 60'000));
    }
    const int ready = poll(waits, std::size(waits), timeout_ms);
    if (ready > 0 || (ready < 0 && errno != EINTR)) return;
  }
}

int run(const CLI::App& app, const Options& options) {
  const auto viewer = std::make_shared<tap::Viewer>(options.style);
  const auto bus = tool::BusConnection::create(options.bus);
  if (bus == nullptr) return tool::EXIT_WRONG_OPTIONS;
  for (const auto& topic : options.topics) {
    if (!bus->transport().subscribe(topic, viewer, 0))
      return tool::wrong_options(app, "cannot subscribe to " + topic);
  }
  if (!bus->open()) return bus->close(tool::EXIT_FAILED);
  const tool::StopSignals signals;
  wait_for_end(*viewer, signals, options.seconds);
  if (const int error = viewer->write_error(); error != 0) {
    std::cerr << "satnav-tap: cannot write: " << std::strerror(error) << '\n';
    return bus->close(tool::EXIT_FAILED);
  }
  const bool nothing_came = options.style.count > 0 && viewer->seen() == 0;
  return bus->close(nothing_came ? tool::EXIT_FAILED : tool::EXIT_DONE);
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app(DESCRIPTION, "satnav-tap");
  app.footer(FOOTER);
  Options options;
  add_options(app, options);
  if (const auto status = tool::parse_options(app, argc, argv)) return *status;
  tool::ignore_broken_pipes();
  return run(app, options);
}
