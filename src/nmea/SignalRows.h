#pragma once

#include <limits>
#include <span>
#include <string>

#include "nmea/GnssInfo.h"
#include "platform/rt/Signals.h"

namespace ecu::koru::gpspub {

/// The source of one signal's value.
struct SignalRow {
  const char* signal;
  const char* label;                 ///< for the debug record: where the value comes from
  double (*value)(const GnssInfo&);  ///< physical; NaN: not available
};

inline constexpr double SIGNAL_NOT_AVAILABLE = std::numeric_limits<double>::quiet_NaN();

/// Fills the signals in the order of the rows; a signal without a value gets all ones. Logs a signal that
/// cannot hold its value and still sets the others. Service thread only.
void fillSignals(rt::SignalGroup& group, std::span<const SignalRow> rows, const GnssInfo& info);

/// Sets every bit of the signal.
void setNotAvailable(rt::SignalGroup& group, const char* signal);

/// Packs the group into `out`. On failure logs it and returns false.
[[nodiscard]] bool packGroup(const rt::SignalGroup& group, const std::string& topic, com::Message& out);

}  // namespace ecu::koru::gpspub
