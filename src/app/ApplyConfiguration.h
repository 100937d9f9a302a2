#pragma once

#include <string>

#include "app/Options.h"
#include "app/Settings.h"
#include "core/GPSDClient.h"

namespace ecu::koru::gpspub {

/// Sends log records where "logmode" says.
void applyLogMode(const Settings& settings);

/// Loads "signal_database", the file whose signal groups replace the built-in ones.
void applySignalDatabase(const Settings& settings);

/// Returns the topic on which the service publishes its own state; empty if the key is absent or, after an
/// ERROR record, not a topic.
[[nodiscard]] std::string healthTopic(const Settings& settings);

/// Returns the unit's own hardware, whose link is recorded if "record_link" names a file.
[[nodiscard]] UnitHardware unitHardware(const Settings& settings);

/// Applies the options and the file to the service. An option beats the file, and the file beats the default.
/// The key "gnss_system" has no effect: only the option sets the systems. A value that cannot be used is
/// logged and skipped.
void applyConfiguration(const Options& options, const Settings& settings, GPSDClient& service);

}  // namespace ecu::koru::gpspub
