// ecu-sim: publishes the messages that the satellite-navigation service gets from the rest of the unit.
#include <iostream>

#include "sim/ecu/BridgeSession.h"
#include "sim/ecu/Session.h"
#include "sim/ecu/UnitOptions.h"
#include "tools/common/Options.h"
#include "tools/common/StopSignals.h"

namespace {

using namespace ecu::koru;

struct Options {
  tool::BusOptions bus{.program = "ecu-sim"};
  sim::UnitOptions unit;
  bool retain_all = false;
  bool keep = false;
  sim::BridgeOptions bridge;
};

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
    R"(Exit status: 0 when everything was published; 1 when the broker cannot be reached or does not take it, or when
standard output cannot be written; 2 for wrong options and a broken command in the file. With --bridge 1 also when the
signal database cannot be used.)";

void add_options(CLI::App& app, Options& options) {
  tool::add_bus_options(app, options.bus);
  sim::add_unit_options(app, options.unit);
  app.add_flag("--retain-all", options.retain_all,
               "Retain time zone, blackout and hardware version too, for a service that starts later");
  app.add_flag("--keep", options.keep,
               "Stay, follow commands on standard input, and publish everything again after a reconnect");
  sim::add_bridge_options(app, options.bridge);
}

int run(const Options& options, sim::Requests& requests) {
  const auto bus = tool::BusConnection::create(options.bus);
  if (bus == nullptr) return tool::EXIT_WRONG_OPTIONS;
  if (!bus->open()) return bus->close(tool::EXIT_FAILED);
  sim::Session session(bus->transport(), requests.unit);
  if (const auto problem = session.start(requests.said_once); !problem.empty()) {
    std::cerr << "ecu-sim: " << problem << '\n';
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
  tool::ignore_write_signals();
  if (!options.bridge.ends.first.empty()) return bridge(app, options);
  sim::Requests requests{.unit = sim::UnitState(options.retain_all), .said_once = {}};
  try {
    requests.add_all(options.unit);
  } catch (const sim::BadCommand& error) {
    return tool::wrong_options(app, error.what());
  }
  return run(options, requests);
}
