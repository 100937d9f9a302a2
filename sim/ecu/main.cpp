// ecu-sim: publishes the messages that the satellite-navigation service gets from the rest of the unit.
#include <fstream>
#include <iostream>
#include <optional>

#include "platform/base/Logging.h"
#include "sim/ecu/BridgeSession.h"
#include "sim/ecu/Session.h"
#include "tools/common/Options.h"
#include "tools/common/StopSignals.h"

namespace {

using namespace ecu::koru;

struct Options {
  tool::BusOptions bus{.program = "ecu-sim"};
  std::string file;
  std::vector<std::string> variables;
  std::vector<std::string> parameters;
  std::optional<std::string> time_zone;
  std::optional<std::string> blackout;
  std::optional<std::string> hardware_version;
  bool no_defaults = false;
  bool retain_all = false;
  bool keep = false;
  sim::BridgeOptions bridge;
};

/// A unit with its own receiver. No parameter is set.
constexpr const char* DEFAULTS[] = {"var hwvariant sim", "var hwversion qrx", "var hasgnss true"};

constexpr const char* DESCRIPTION =
    R"(Publishes what the rest of the unit would: ECU variables and system parameters (retained), time zone, blackout
and hardware version. Without options: a unit with a receiver, hwvariant=sim, hwversion=qrx, hasgnss=true, no
system parameter, no time zone. Ends when the broker has it all, or stays with --keep.
With --bridge FROM TO: the vehicle's CAN between two units, each given as HOST[:PORT][/PREFIX], where the unit's
topics stand behind PREFIX/ on that broker. Both may be on one broker. Of the other options only --config and
--client-name go with it. Runs until Ctrl-C and then tells how many frames of each group it carried.)";

const std::string FOOTER =
    R"(Commands, of --file and with --keep on standard input ('#' begins a comment; a parameter's change is
announced only with --keep; the end of standard input ends only the commands):
)" + sim::command_help() +
    R"(Exit status: 0 when everything was published; 1 when the broker cannot be reached or does not take it; 2 for
wrong options and a broken command in the file. With --bridge 1 also when the signal database cannot be used.)";

/// Adds a repeatable option whose values look like `form`, such as "NAME=TEXT".
void add_repeatable(CLI::App& app, const char* name, std::vector<std::string>& values,
                    const std::string& form, const std::string& help) {
  const auto check = [form](const std::string& text) {
    return text.find('=') == std::string::npos
               ? "expected " + form + ", found '" + logging::escaped(text) + "'"
               : std::string();
  };
  app.add_option(name, values, form + ": " + help)
      ->check(CLI::Validator(check, ""))
      ->type_size(1)
      ->allow_extra_args(false);
}

void add_options(CLI::App& app, Options& options) {
  tool::add_bus_options(app, options.bus);
  add_repeatable(app, "--var", options.variables, "NAME=TEXT", "an ECU variable, repeatable");
  add_repeatable(app, "--param", options.parameters, "ID=HEX[:nootaid]",
                 "a system parameter's value bytes, like 0xA00F=01, repeatable");
  app.add_option("--timezone", options.time_zone,
                 "+HH:MM[,summer][,source=user], or none: the zone is not known");
  app.add_option("--blackout", options.blackout, "on or off: radio silence");
  app.add_option("--hw-version", options.hardware_version, "TEXT: the hardware version signal's bytes");
  app.add_option("--file", options.file, "A file of commands, one a line; the options above win")
      ->check(CLI::ExistingFile);
  app.add_flag("--no-defaults", options.no_defaults, "Publish only the variables that are named");
  app.add_flag("--retain-all", options.retain_all,
               "Retain time zone, blackout and hardware version too, for a service that starts later");
  app.add_flag("--keep", options.keep,
               "Stay, follow commands on standard input, and publish everything again after a reconnect");
  sim::add_bridge_options(app, options.bridge);
}

/// Applies the defaults, the file and the command line in this order, so that later ones win.
struct Requests {
  sim::UnitState unit;
  std::vector<sim::Publication> said_once;

  void add(const std::string& line) {
    const sim::Command command = sim::parse_command(line);
    if (sim::concerns_session(command)) throw sim::BadCommand("only for standard input: " + line);
    auto publications = unit.apply(command);
    if (sim::is_said_once(command))
      std::move(publications.begin(), publications.end(), std::back_inserter(said_once));
  }

  void add_file(const std::string& path) {
    std::ifstream file(path);
    if (!file) throw sim::BadCommand("cannot read " + path);
    std::string line;
    for (unsigned number = 1; std::getline(file, line); ++number) {
      try {
        if (!sim::is_blank(line)) add(line);
      } catch (const sim::BadCommand& error) {
        throw sim::BadCommand(path + " line " + std::to_string(number) + ": " + error.what());
      }
    }
  }

  void add_all(const Options& options) {
    if (!options.no_defaults) {
      for (const char* line : DEFAULTS) add(line);
    }
    if (!options.file.empty()) add_file(options.file);
    for (const auto& text : options.variables) add("var " + text);
    for (const auto& text : options.parameters) add("param " + text);
    if (options.time_zone) add("timezone " + *options.time_zone);
    if (options.blackout) add("blackout " + *options.blackout);
    if (options.hardware_version) add("hw-version " + *options.hardware_version);
  }
};

int run(const Options& options, Requests& requests) {
  const auto bus = tool::BusConnection::create(options.bus);
  if (bus == nullptr) return tool::EXIT_WRONG_OPTIONS;
  if (!bus->open()) return bus->close(tool::EXIT_FAILED);
  sim::Session session(bus->transport(), requests.unit);
  if (!session.start(requests.said_once)) {
    std::cerr << "ecu-sim: the broker did not take everything\n";
    return bus->close(tool::EXIT_FAILED);
  }
  if (options.keep) session.keep();
  return bus->close(tool::EXIT_DONE);
}

int bridge(const CLI::App& app, const Options& options) {
  for (const char* name : {"--host", "--port", "--var", "--param", "--timezone", "--blackout", "--hw-version",
                           "--file", "--no-defaults", "--retain-all", "--keep"}) {
    if (app.count(name) > 0) return tool::wrong_options(app, std::string(name) + " is not for --bridge");
  }
  return sim::run_bridge(app, options.bus, options.bridge);
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app(DESCRIPTION, "ecu-sim");
  app.footer(FOOTER);
  Options options;
  add_options(app, options);
  if (const auto status = tool::parse_options(app, argc, argv)) return *status;
  tool::ignore_broken_pipes();
  if (!options.bridge.ends.first.empty()) return bridge(app, options);
  Requests requests{.unit = sim::UnitState(options.retain_all), .said_once = {}};
  try {
    requests.add_all(options);
  } catch (const sim::BadCommand& error) {
    return tool::wrong_options(app, error.what());
  }
  return run(options, requests);
}
