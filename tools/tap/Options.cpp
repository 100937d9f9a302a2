#include "tools/tap/Options.h"

#include <cstdint>

#include "platform/base/Numbers.h"
#include "tools/common/Options.h"
#include "tools/tap/CanFrame.h"

namespace ecu::koru::tap {

namespace {

std::string check_interface(const std::string& name) {
  constexpr size_t MAX_NAME = 15;  // limit of the system's interface names
  constexpr const char* ALLOWED = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789._-";
  const bool good =
      !name.empty() && name.size() <= MAX_NAME && name.find_first_not_of(ALLOWED) == std::string::npos;
  return good ? std::string() : "not the name of a network interface: " + name;
}

uint8_t source_address(const std::string& text) {
  const bool has_prefix = text.starts_with("0x") || text.starts_with("0X");
  const auto value = to_number<uint8_t>(std::string_view(text).substr(has_prefix ? 2 : 0), 16);
  if (value && *value <= ANY_SOURCE_ADDRESS) return *value;
  throw CLI::ValidationError("--source-address", "not an address from 00 to FE: " + text);
}

void add_viewer_options(CLI::App& app, Viewer::Options& options) {
  app.add_option("--topic", options.topics, "An MQTT topic filter, repeatable [system/# rt/# systime/#]")
      ->check(tool::topic_filter())
      ->type_size(1)
      ->allow_extra_args(false);
  app.add_flag("--json", options.json,
               "One JSON object a line: time, arrival_ns, topic, retained, envelope, type, body, group");
  app.add_flag("--sentences", options.sentences, "Show the NMEA sentences of each fix below its line");
  app.add_flag("--changes", options.changes,
               "Show only messages whose content, time stamps apart, differs from their topic's last one");
  app.add_option("--count", options.count, "End after so many messages")->check(CLI::Range(1, INT32_MAX));
}

void add_can_log_options(CLI::App& app, CanLog::Options& options) {
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

}  // namespace

void add_options(CLI::App& app, Options& options) {
  tool::add_bus_options(app, options.bus);
  add_viewer_options(app, options.viewer);
  app.add_option("--seconds", options.seconds, "End after so many seconds")
      ->check(CLI::Range(0.001, 1e9) & tool::not_nan());
  tool::add_signal_database_option(app, options.signal_database);
  add_can_log_options(app, options.can_log);
  add_nmea_options(app, options.nmea);
  add_export_options(app, options.exports);
  add_recording_options(app, options.recording);
  app.add_flag("--force", options.force, "Replace files that exist already");
  live::add_live_options(app, options.live);
}

}  // namespace ecu::koru::tap
