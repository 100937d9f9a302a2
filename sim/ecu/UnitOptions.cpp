#include "sim/ecu/UnitOptions.h"

#include <algorithm>
#include <fstream>
#include <iterator>

#include "platform/base/Logging.h"

namespace ecu::koru::sim {

namespace {

/// A unit with its own receiver. No parameter is set.
constexpr const char* DEFAULTS[] = {"var hwvariant sim", "var hwversion qrx", "var hasgnss true"};

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

}  // namespace

void add_unit_options(CLI::App& app, UnitOptions& options) {
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
}

void Requests::add(const std::string& line) {
  const Command command = parse_command(line);
  if (concerns_session(command)) throw BadCommand("only for standard input: " + line);
  auto publications = unit.apply(command);
  if (is_said_once(command))
    std::move(publications.begin(), publications.end(), std::back_inserter(said_once));
}

void Requests::add_file(const std::string& path) {
  std::ifstream input(path);
  if (!input) throw BadCommand("cannot read " + path);
  std::string line;
  for (unsigned number = 1; std::getline(input, line); ++number) {
    try {
      if (!is_blank(line)) add(line);
    } catch (const BadCommand& error) {
      throw BadCommand(path + " line " + std::to_string(number) + ": " + error.what());
    }
  }
}

void Requests::add_all(const UnitOptions& options) {
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

}  // namespace ecu::koru::sim
