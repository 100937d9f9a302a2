#pragma once

#include <cstdint>

#include "app/Settings.h"
#include "tools/check/Report.h"

namespace ecu::koru::check {

/// What the receiver's line must carry once the service has configured the receiver.
struct LinkBudget {
  unsigned bytes_per_epoch = 0;  ///< at most; rare messages by their share
  unsigned bytes_per_second = 0;
  unsigned baud_rate = 0;
  unsigned uncounted = 0;  ///< messages that raw commands switch on and whose length is not known

  /// Returns the share of what the line carries: ten bits a byte.
  [[nodiscard]] unsigned percent() const { return (bytes_per_second * 1000 + baud_rate / 2) / baud_rate; }
};

/// Adds up the messages of the service's commands and of the raw ones. `systems`: bit 0 GPS, 1 GLONASS, 2
/// BeiDou, 3 Galileo.
[[nodiscard]] LinkBudget link_budget(const gpspub::Settings& settings, unsigned period_ms, uint32_t systems);

/// Adds the budget, as a finding if it is above 80 %.
void check_link(const gpspub::Settings& settings, unsigned period_ms, uint32_t systems, Report& report);

}  // namespace ecu::koru::check
