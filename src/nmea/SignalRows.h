#pragma once

#include <limits>
#include <span>
#include <string>

#include "nmea/GnssInfo.h"
#include "platform/rt/Signals.h"

namespace ecu::koru::gpspub {

/// What goes into one signal of a group.
struct SignalRow {
  const char* signal;
  const char* label;                 ///< for the debug record: where the value comes from
  double (*value)(const GnssInfo&);  ///< physical; NaN: not available
};

inline constexpr double SIGNAL_NOT_AVAILABLE = std::numeric_limits<double>::quiet_NaN();

/// Fills the signals in the order of the rows, with all ones where there is no value. A signal that does not
/// take its value is logged; the others are still set. Service thread only.
void fillSignals(rt::SignalGroup& group, std::span<const SignalRow> rows, const GnssInfo& info);

/// Every bit of the signal.
void setNotAvailable(rt::SignalGroup& group, const char* signal);

/// Packs the group into `out`. False, logged, when that fails.
[[nodiscard]] bool packGroup(const rt::SignalGroup& group, const std::string& topic, com::Message& out);

}  // namespace ecu::koru::gpspub
