#pragma once

#include "tools/check/FileCheck.h"

namespace ecu::koru::check {

/// Returns the MQTT client id of this program. It never uses the file's: the broker would disconnect the
/// service.
[[nodiscard]] std::string own_client_name();

/// Logs in with the file's settings. Returns true if that works.
[[nodiscard]] bool check_broker(const File& file, Report& report);

/// Asks for each topic that the service subscribes, with those of the CAN input only if `can_input`.
/// Publishes nothing.
void check_topics(const File& file, bool can_input, Report& report);

}  // namespace ecu::koru::check
