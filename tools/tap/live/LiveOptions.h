#pragma once

#include <CLI/CLI.hpp>

namespace ecu::koru::tap::live {

struct Options {
  bool on = false;  ///< a screen in place of lines
};

/// Adds --live. `options` must outlive `app`.
void add_live_options(CLI::App& app, Options& options);

}  // namespace ecu::koru::tap::live
