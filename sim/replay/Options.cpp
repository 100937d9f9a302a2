#include "sim/replay/Options.h"

#include "platform/base/Logging.h"
#include "platform/base/Numbers.h"
#include "tools/common/Options.h"

namespace ecu::koru::sim {

namespace {

std::string check_level(const std::string& level) {
  return logging::is_level(level) ? std::string() : "not a level: " + level;
}

CLI::Option* add_number(CLI::App& app, const char* name, uint32_t& number, const char* help) {
  return app
      .add_option_function<std::string>(
          name,
          [name, &number](const std::string& text) {
            try {
              number = to_u32_base0(text);
            } catch (const std::exception&) {
              throw CLI::ValidationError(name, "not a number: " + text);
            }
          },
          help)
      ->type_name("NUMBER");
}

void add_service_options(CLI::App& app, ReplayOptions& options) {
  gpspub::Options& service = options.service;
  app.add_option("--config", options.config, "The service's configuration file [none: its defaults]")
      ->check(tool::file_name());
  app.add_option("--gnssdevice", service.device, "The receiver's device, as for satnavd")
      ->check(tool::file_name());
  add_number(app, "--baudrate", service.baud_rate, "The same, bit/s");
  add_number(app, "--gnsssystem", service.gnss_system, "The same, bits of the systems");
  add_number(app, "--gnssaugmentation", service.augmentation, "The same, bits of the augmentation systems");
  add_number(app, "--debugflags", service.debug_flags, "The same, bits of the diagnostics")
      ->each([&service](const std::string&) { service.debug_flags_given = true; });
  app.add_flag("--disable-hw-init", service.disable_hw_init, "The same: the receiver is not configured");
}

std::pair<double, std::string> change_of(const std::string& text) {
  const size_t blank = text.find(' ');
  const auto seconds = to_number<double>(std::string_view(text).substr(0, blank));
  if (!seconds || !(*seconds >= 0) || *seconds > 1e9 || blank == std::string::npos)
    throw CLI::ValidationError("--at", "not a time and a command, such as \"12.5 blackout on\": " + text);
  return {*seconds, text.substr(blank + 1)};
}

void add_bus_option(CLI::App& app, ReplayOptions& options) {
  CLI::Option* const bus =
      app.add_option("--bus", options.bus,
                     "What the unit said, recorded by satnav-tap --record at the same time; "
                     "excludes the options of the unit")
          ->check(tool::file_name());
  for (const char* const name : {"--var", "--param", "--timezone", "--blackout", "--hw-version", "--file",
                                 "--no-defaults", "--uptime"})
    bus->excludes(app.get_option(name));
}

void add_time_options(CLI::App& app, ReplayOptions& options) {
  app.add_option_function<std::vector<std::string>>(
         "--at",
         [&options](const std::vector<std::string>& texts) {
           for (const std::string& text : texts) options.changes.push_back(change_of(text));
         },
         "\"SECONDS COMMAND\": what the unit says on the bus at that time, repeatable; a command of ecu-sim")
      ->type_name("TEXT")
      ->type_size(1)
      ->allow_extra_args(false);
  app.add_option("--uptime", options.uptime,
                 "Seconds since boot at the start [60 if the port was first opened at 9600 bit/s, else 1000]")
      ->check(CLI::Range(0.0, 1e9) & tool::not_nan());
  app.add_flag("--no-reset-line", options.no_reset_line,
               "The unit had no line to the receiver's reset input, so a reset took no time");
}

void add_output_options(CLI::App& app, ReplayOptions& options) {
  app.add_option("--topic", options.topics, "Show only these messages: an MQTT topic filter, repeatable")
      ->check(tool::topic_filter())
      ->type_size(1)
      ->allow_extra_args(false);
  app.add_flag("--recording", options.as_recording,
               "Print the messages as satnav-tap --record writes them, for satnav-tap --read");
  app.add_option("--from", options.from, "Show messages from this second of the recording on")
      ->check(CLI::Range(0.0, 1e9) & tool::not_nan());
  app.add_option("--to", options.to, "Stop the service at this second")
      ->check(CLI::Range(0.0, 1e9) & tool::not_nan());
  app.parse_complete_callback([&options] {
    if (options.to < options.from) throw CLI::ValidationError("--to", "is before --from");
  });
  app.add_option("--log", options.service.log_level,
                 "Level of the service's log on standard error, EMERG to DEBUG [WARNING]")
      ->check(CLI::Validator(check_level, "LEVEL"));
  app.add_flag("--strict", options.strict, "Exit status 1 for a difference, or an incomplete file");
}

}  // namespace

void add_options(CLI::App& app, ReplayOptions& options) {
  options.service.log_level = "WARNING";
  app.add_option("recording", options.recordings,
                 "File of record_link, or - for standard input; several: oldest first")
      ->required()
      ->type_name("FILE")
      ->check(tool::file_name());
  add_service_options(app, options);
  add_unit_options(app, options.unit);
  add_time_options(app, options);
  add_bus_option(app, options);
  add_output_options(app, options);
}

}  // namespace ecu::koru::sim
