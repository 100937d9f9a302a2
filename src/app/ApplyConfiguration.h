#pragma once

#include <memory>

#include "app/Options.h"
#include "core/GPSDClient.h"
#include "platform/base/Configuration.h"

namespace ecu::koru::gpspub {

/// Makes the service's keys known, with their defaults.
void registerKeys(config::Configuration& config);

/// "logmode": where log records go.
void applyLogMode(const config::Configuration& config);

/// "signal_database": the file whose signal groups replace the built-in ones.
void applySignalDatabase(const config::Configuration& config);

/// Options and file to the service: an option beats the file, the file beats the default. A value that cannot
/// be used is logged and skipped, never fatal.
void applyConfiguration(const Options& options, const config::Configuration& config, GPSDClient& service);

}  // namespace ecu::koru::gpspub
