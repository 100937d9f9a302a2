#pragma once

#include <CLI/CLI.hpp>
#include <limits>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "app/Options.h"
#include "sim/ecu/UnitOptions.h"

namespace ecu::koru::sim {

/// The command line of satnavd-replay. Times are seconds since the service began.
struct ReplayOptions {
  std::vector<std::string> recordings;  ///< oldest first
  std::string config;                   ///< empty: a configuration without keys
  gpspub::Options service;              ///< the service's own options then
  UnitOptions unit;
  std::string bus;  ///< a recording of the bus, in place of `unit`; empty: none
  std::vector<std::pair<double, std::string>> changes;  ///< commands of the unit, with their times
  std::optional<double> uptime;                         ///< since boot, at the start
  bool no_reset_line = false;
  std::vector<std::string> topics;  ///< to show; empty: all
  bool as_recording = false;        ///< in the form of satnav-tap --record, in place of --json
  double from = 0;
  double to = std::numeric_limits<double>::infinity();
  bool strict = false;
};

/// Adds every option. `options` must outlive `app`.
void add_options(CLI::App& app, ReplayOptions& options);

}  // namespace ecu::koru::sim
