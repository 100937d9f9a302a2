#pragma once

#include <memory>
#include <optional>
#include <string>

#include "app/Settings.h"
#include "platform/com/MqttOptions.h"
#include "tools/check/Report.h"

namespace ecu::koru::check {

/// A configuration file as the service reads it.
struct File {
  std::string path;  ///< absolute
  std::unique_ptr<config::Configuration> config;
  gpspub::Settings settings;
  com::MqttOptions broker;
};

/// Reads the file. Returns nothing if it cannot be read.
[[nodiscard]] std::optional<File> read_file(const std::string& path);

/// Adds all findings, in the order of the lines, and the settings in effect.
void check_file(const File& file, Report& report);

}  // namespace ecu::koru::check
