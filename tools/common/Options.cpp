#include "tools/common/Options.h"

#include <iostream>

namespace ecu::koru::tool {

void add_bus_options(CLI::App& app, BusOptions& options) {
  app.add_option("--host", options.host, "The broker's name or address [127.0.0.1]");
  app.add_option("--port", options.port, "The broker's port [1883]")->check(CLI::Range(1, 65535));
  app.add_option("--config", options.config_file,
                 "A satnavd.conf: broker, TLS and login keys are taken from it; --host and --port win")
      ->check(CLI::ExistingFile);
  app.add_option("--client-name", options.client_name, "MQTT client id [the program's name and process id]");
}

std::optional<int> parse_options(CLI::App& app, int argc, char** argv) {
  try {
    app.parse(argc, argv);
    return std::nullopt;
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? EXIT_DONE : EXIT_WRONG_OPTIONS;
  }
}

int wrong_options(const CLI::App& app, std::string_view text) {
  std::cerr << app.get_name() << ": " << text << "\nRun with --help for more information.\n";
  return EXIT_WRONG_OPTIONS;
}

}  // namespace ecu::koru::tool
