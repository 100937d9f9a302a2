#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <string>
#include <vector>

#include "sim/ecu/UnitState.h"

namespace ecu::koru::sim {

/// The options that say what the unit is and tells. Each is a command of its own (Command.h).
struct UnitOptions {
  std::string file;
  std::vector<std::string> variables;
  std::vector<std::string> parameters;
  std::optional<std::string> time_zone;
  std::optional<std::string> blackout;
  std::optional<std::string> hardware_version;
  bool no_defaults = false;
};

/// Adds --var, --param, --timezone, --blackout, --hw-version, --file and --no-defaults. `options` must
/// outlive `app`.
void add_unit_options(CLI::App& app, UnitOptions& options);

/// The unit as the options want it.
struct Requests {
  UnitState unit;
  std::vector<Publication> said_once;

  /// Applies the defaults, the file and the command line in this order, so that later ones win. Throws
  /// BadCommand.
  void add_all(const UnitOptions& options);

 private:
  void add(const std::string& line);
  void add_file(const std::string& path);
};

}  // namespace ecu::koru::sim
