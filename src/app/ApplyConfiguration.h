#pragma once

#include <memory>

#include "app/Options.h"
#include "core/GPSDClient.h"
#include "platform/base/Configuration.h"

namespace ecu::koru::gpspub {

/// Registers the service's keys and their defaults.
void registerKeys(config::Configuration& config);

/// Sends log records where "logmode" says.
void applyLogMode(const config::Configuration& config);

/// Loads "signal_database", the file whose signal groups replace the built-in ones.
void applySignalDatabase(const config::Configuration& config);

/// Applies the options and the file to the service. An option beats the file, and the file beats the default.
/// The key "gnss_system" has no effect: only the option sets the systems. A value that cannot be used is
/// logged and skipped.
void applyConfiguration(const Options& options, const config::Configuration& config, GPSDClient& service);

}  // namespace ecu::koru::gpspub
