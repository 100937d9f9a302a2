#pragma once

#include <CLI/CLI.hpp>
#include <optional>

#include "tools/common/BusConnection.h"

namespace ecu::koru::tool {

/// What the shell is told.
inline constexpr int EXIT_DONE = 0;
inline constexpr int EXIT_FAILED = 1;
inline constexpr int EXIT_WRONG_OPTIONS = 2;

/// Adds --host, --port, --config and --client-name. `options` must outlive `app`.
void add_bus_options(CLI::App& app, BusOptions& options);

/// Refuses an empty text: most likely a shell variable that is not set.
[[nodiscard]] CLI::Validator file_name();

/// Refuses "nan", which lies within every range.
[[nodiscard]] CLI::Validator not_nan();

/// Adds --signal-database. `file` must outlive `app`.
CLI::Option* add_signal_database_option(CLI::App& app, std::string& file);

/// Replaces the built-in signal database by the file, unless its name is empty. False when the file cannot be
/// read or understood; standard error was told.
[[nodiscard]] bool use_signal_database(const CLI::App& app, const std::string& file);

/// Reads the command line. The exit status when the program has to end now: help was shown, or the options
/// are wrong, which standard error was told.
[[nodiscard]] std::optional<int> parse_options(CLI::App& app, int argc, char** argv);

/// Reports a wrong option or input on standard error; EXIT_WRONG_OPTIONS.
int wrong_options(const CLI::App& app, std::string_view text);

}  // namespace ecu::koru::tool
