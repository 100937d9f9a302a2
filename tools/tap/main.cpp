// satnav-tap: shows the messages on the bus, decoded.
#include <mosquitto.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <iostream>

#include "platform/base/Time.h"
#include "tools/common/Options.h"
#include "tools/tap/CanFrame.h"
#include "tools/tap/CanLog.h"
#include "tools/tap/Viewer.h"

namespace {

using namespace ecu::koru;

struct Options {
  tool::BusOptions bus{.program = "satnav-tap"};
  std::vector<std::string> topics{"system/#", "rt/#", "systime/#"};
  tap::Viewer::Style style;
  std::string signal_database;
  tap::CanLog::Options can_log;
  double seconds = 0;  // 0: no limit
};

constexpr const char* DESCRIPTION =
    R"(Shows every message of the unit's bus decoded, one line each: time of arrival (UTC), topic, envelope (protocol
type, body length, time stamp in seconds since boot), fields. Of a signal group: its name, every signal with
its physical value and unit, or why it has none, and the packed bytes. A message that cannot be decoded is shown
with the reason and a hex dump. Ends on Ctrl-C and when nobody reads the output any more.)";

constexpr const char* FOOTER =
    R"(Exit status: 0; 1 when the broker cannot be reached, when the signal database cannot be read, when the output or
the CAN log cannot be written, or when --count is given and nothing at all arrives; 2 for wrong options.)";

std::string check_filter(const std::string& filter) {
  const bool good = mosquitto_sub_topic_check2(filter.data(), filter.size()) == MOSQ_ERR_SUCCESS;
  return good ? std::string() : "not an MQTT topic filter: " + filter;
}

std::string check_interface(const std::string& name) {
  constexpr size_t MAX_NAME = 15;  // limit of the system's interface names
  constexpr const char* ALLOWED = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789._-";
  const bool good =
      !name.empty() && name.size() <= MAX_NAME && name.find_first_not_of(ALLOWED) == std::string::npos;
  return good ? std::string() : "not the name of a network interface: " + name;
}

uint8_t source_address(const std::string& text) {
  const bool has_prefix = text.starts_with("0x") || text.starts_with("0X");
  const char* const begin = text.data() + (has_prefix ? 2 : 0);
  const char* const end = text.data() + text.size();
  uint8_t value = 0;
  const auto [stop, error] = std::from_chars(begin, end, value, 16);
  if (error == std::errc{} && stop == end && value <= tap::ANY_SOURCE_ADDRESS) return value;
  throw CLI::ValidationError("--source-address", "not an address from 00 to FE: " + text);
}

void add_can_log_options(CLI::App& app, tap::CanLog::Options& options) {
  auto* const file =
      app.add_option("--can-log", options.file,
                     "Write the CAN signal groups, whatever is shown, to a file that canplayer can replay");
  file->check(tool::file_name());
  app.add_option("--can-interface", options.interface, "The interface in its lines [can0]")
      ->check(CLI::Validator(check_interface, "NAME"))
      ->needs(file);
  app.add_option("--oemcan-interface", options.oem_interface,
                 "The same for the groups of rt/oemcan, which is a bus of its own [can1]")
      ->check(CLI::Validator(check_interface, "NAME"))
      ->needs(file);
  app.add_option_function<std::string>(
         "--source-address",
         [&options](const std::string& text) { options.source_address = source_address(text); },
         "J1939 source address in hex, the lowest byte of the ids [1C, vehicle navigation, where the signal "
         "database has FE]")
      ->type_name("HEX")
      ->needs(file);
}

void add_options(CLI::App& app, Options& options) {
  tool::add_bus_options(app, options.bus);
  app.add_option("--topic", options.topics, "An MQTT topic filter, repeatable [system/# rt/# systime/#]")
      ->check(CLI::Validator(check_filter, "FILTER"))
      ->type_size(1)
      ->allow_extra_args(false);
  app.add_flag("--json", options.style.json,
               "One JSON object a line: time, arrival_ns, topic, retained, envelope, type, body, group");
  app.add_flag("--sentences", options.style.sentences, "Show the NMEA sentences of each fix below its line");
  app.add_option("--count", options.style.count, "End after so many messages")
      ->check(CLI::Range(1, INT32_MAX));
  app.add_option("--seconds", options.seconds, "End after so many seconds")
      ->check(CLI::Range(0.001, 1e9) & tool::not_nan());
  tool::add_signal_database_option(app, options.signal_database);
  add_can_log_options(app, options.can_log);
}

/// Waits for the end: the count, a lost output, a failed CAN log, the end of the time, or a signal.
void wait_for_end(const tap::Viewer& viewer, const tap::CanLog& can_log, double seconds) {
  const tool::StopSignals signals;
  const int64_t end_ns = time_source().steady_ns() + static_cast<int64_t>(seconds * 1e9);
  pollfd waits[] = {{viewer.finished().fd(), POLLIN, 0},
                    {can_log.failed().fd(), POLLIN, 0},
                    {signals.fd(), POLLIN, 0},
                    {STDOUT_FILENO, 0, 0}};
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

int cannot_write(const std::string& what, int error) {
  std::cerr << "satnav-tap: cannot write" << what << ": " << std::strerror(error) << '\n';
  return tool::EXIT_FAILED;
}

/// Returns the exit status, and reports a failed write on standard error.
int status_of(const Options& options, const tap::Viewer& viewer, const tap::CanLog& can_log) {
  if (can_log.error() != 0) return cannot_write(" " + options.can_log.file, can_log.error());
  if (viewer.write_error() != 0) return cannot_write("", viewer.write_error());
  const bool nothing_came = options.style.count > 0 && viewer.seen() == 0;
  return nothing_came ? tool::EXIT_FAILED : tool::EXIT_DONE;
}

int run(const CLI::App& app, const Options& options) {
  const auto can_log = std::make_shared<tap::CanLog>(options.can_log);
  const auto viewer = std::make_shared<tap::Viewer>(options.style);
  const auto bus = tool::BusConnection::create(options.bus);
  if (bus == nullptr) return tool::EXIT_WRONG_OPTIONS;
  if (!tool::use_signal_database(app, options.signal_database)) return tool::EXIT_FAILED;
  if (!options.can_log.file.empty()) {
    if (!can_log->open()) return status_of(options, *viewer, *can_log);
    // The log subscribes before the viewer, so that it has every shown message even if --count
    // ends the program.
    for (const auto& topic : tap::CanLog::topics()) bus->transport().subscribe(topic, can_log, 0);
  }
  for (const auto& topic : options.topics) {
    if (!bus->transport().subscribe(topic, viewer, 0))
      return tool::wrong_options(app, "cannot subscribe to " + topic);
  }
  if (!bus->open()) return bus->close(tool::EXIT_FAILED);
  wait_for_end(*viewer, *can_log, options.seconds);
  return bus->close(status_of(options, *viewer, *can_log));
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
