#pragma once

#include <CLI/CLI.hpp>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/tap/NmeaServer.h"

namespace ecu::koru::tap {

/// Which programs get the NMEA sentences.
struct NmeaOptions {
  bool print = false;                ///< to standard output, in place of the viewer
  std::optional<ListenAddress> tcp;  ///< of the server, if there is to be one
  std::string terminal_link;         ///< to the pseudo-terminal; empty: none
};

/// Adds --nmea, --tcp and --pty. `options` must outlive `app`.
void add_nmea_options(CLI::App& app, NmeaOptions& options);

[[nodiscard]] std::vector<std::shared_ptr<Output>> make_nmea_outputs(const NmeaOptions& options);

}  // namespace ecu::koru::tap
