#pragma once

#include <CLI/CLI.hpp>
#include <optional>

#include "tools/common/BusConnection.h"

namespace ecu::koru::tool {

inline constexpr int EXIT_DONE = 0;
inline constexpr int EXIT_FAILED = 1;
inline constexpr int EXIT_WRONG_OPTIONS = 2;

/// Adds --host, --port, --config and --client-name. `options` must outlive `app`.
void add_bus_options(CLI::App& app, BusOptions& options);

/// Refuses an empty text, which is most likely an unset shell variable.
[[nodiscard]] CLI::Validator file_name();

/// Refuses what no MQTT broker takes for a subscription.
[[nodiscard]] CLI::Validator topic_filter();

/// Refuses "nan", which CLI::Range accepts.
[[nodiscard]] CLI::Validator not_nan();

/// Adds --signal-database. `file` must outlive `app`.
CLI::Option* add_signal_database_option(CLI::App& app, std::string& file);

/// Replaces the built-in signal database by the file, unless its name is empty. If the file cannot be read or
/// understood, writes why to standard error and returns false.
[[nodiscard]] bool use_signal_database(const CLI::App& app, const std::string& file);

/// The first step of every program: opens closed standard descriptors, adds --version and reads the command
/// line. Returns an exit status if the program must end now, because it has shown the help, "NAME VERSION" or
/// an error text about a wrong option.
[[nodiscard]] std::optional<int> parse_options(CLI::App& app, int argc, char** argv);

/// Reports a wrong option or input on standard error. Returns EXIT_WRONG_OPTIONS.
int wrong_options(const CLI::App& app, std::string_view text);

}  // namespace ecu::koru::tool
