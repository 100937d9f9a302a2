#pragma once

#include <string>
#include <utility>

#include "tools/common/Options.h"

namespace ecu::koru::sim {

struct BridgeOptions {
  std::pair<std::string, std::string> ends;  ///< from, to; empty: no bridge is wanted
  std::string signal_database;
  double loss = 0;
  uint64_t seed = 1;
  int64_t delay_ms = 0;
  double seconds = 0;  ///< 0: no limit
};

/// Adds --bridge and the options that belong to it. `options` must outlive `app`.
void add_bridge_options(CLI::App& app, BridgeOptions& options);

/// Carries frames until Ctrl-C, SIGTERM or the end of the time, then prints how many. Returns
/// the exit status.
[[nodiscard]] int run_bridge(const CLI::App& app, const tool::BusOptions& bus, const BridgeOptions& options);

}  // namespace ecu::koru::sim
