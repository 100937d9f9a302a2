#include "tools/common/Options.h"

#include <mosquitto.h>

#include <cmath>
#include <cstdlib>
#include <iostream>

#include "VersionText.h"
#include "platform/rt/DbcReader.h"
#include "platform/rt/Signals.h"
#include "tools/common/StopSignals.h"

namespace ecu::koru::tool {

namespace {

/// An invalid name would be replaced by the service's own, and the broker would disconnect the service.
std::string check_client_name(const std::string& name) {
  constexpr size_t MAX_NAME = 65535;
  const bool good = name.size() <= MAX_NAME &&
                    (name.empty() ||
                     mosquitto_validate_utf8(name.data(), static_cast<int>(name.size())) == MOSQ_ERR_SUCCESS);
  return good ? std::string() : "not a text in UTF-8 of at most 65535 bytes";
}

std::string complaint(const CLI::App& app, std::string_view text) {
  return app.get_name() + ": " + std::string(text) + "\nRun with --help for more information.\n";
}

std::string failure_text(const CLI::App* app, const CLI::Error& error) {
  return complaint(*app, error.what());
}

}  // namespace

void add_bus_options(CLI::App& app, BusOptions& options) {
  app.add_option("--host", options.host, "The broker's name or address [127.0.0.1]");
  app.add_option("--port", options.port, "The broker's port [1883]")->check(CLI::Range(1, 65535));
  app.add_option("--config", options.config_file,
                 "A satnavd.conf: broker, TLS and login keys are taken from it; --host and --port win")
      ->check(CLI::ExistingFile);
  app.add_option("--client-name", options.client_name, "MQTT client id [the program's name and process id]")
      ->check(CLI::Validator(check_client_name, ""));
}

CLI::Validator file_name() {
  return {[](const std::string& text) { return text.empty() ? "the file's name is empty" : std::string(); },
          "FILE"};
}

CLI::Validator topic_filter() {
  return {[](const std::string& filter) {
            const bool good = mosquitto_sub_topic_check2(filter.data(), filter.size()) == MOSQ_ERR_SUCCESS;
            return good ? std::string() : "not an MQTT topic filter: " + filter;
          },
          "FILTER"};
}

CLI::Validator not_nan() {
  return {[](const std::string& text) {
            return std::isnan(std::strtod(text.c_str(), nullptr)) ? "not a number" : std::string();
          },
          ""};
}

CLI::Option* add_signal_database_option(CLI::App& app, std::string& file) {
  return app.add_option("--signal-database", file, "A DBC file that replaces the built-in signal database")
      ->check(file_name());
}

bool use_signal_database(const CLI::App& app, const std::string& file) {
  if (file.empty()) return true;
  // Check the file first: the adapter's own error record says that the built-in database is used instead.
  const rt::DbcResult result = rt::load_dbc(file);
  if (result.database) return rt::SignalAdapter::instance().load_database(file);
  std::cerr << app.get_name() << ": signal database " << result.error.text() << '\n';
  return false;
}

std::optional<int> parse_options(CLI::App& app, int argc, char** argv) {
  open_standard_descriptors();
  app.set_version_flag("--version", app.get_name() + " " + SATNAVD_VERSION_TEXT, "Print the version and end");
  app.failure_message(failure_text);
  try {
    app.parse(argc, argv);
    return std::nullopt;
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? EXIT_DONE : EXIT_WRONG_OPTIONS;
  }
}

int wrong_options(const CLI::App& app, std::string_view text) {
  std::cerr << complaint(app, text);
  return EXIT_WRONG_OPTIONS;
}

}  // namespace ecu::koru::tool
