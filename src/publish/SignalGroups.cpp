#include "publish/SignalGroups.h"

#include <array>
#include <cmath>
#include <set>

#include "wire/ServiceLog.h"

namespace ecu::koru::gpspub {

namespace {

constexpr std::array<uint8_t, 8> ALL_ONES{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};

/// Returns "0xFF" for one byte, "0xFFFF" for two, and so on up to eight.
std::string_view pattern(size_t bytes) {
  return std::string_view("0xFFFFFFFFFFFFFFFF").substr(0, 2 + 2 * bytes);
}

size_t widthInBytes(const rt::SignalGroup& group, const char* signal) {
  const rt::SignalDefinition* definition = group.definition().signal(signal);
  return definition != nullptr ? definition->data_bytes() : 1;
}

void setNotAvailable(rt::SignalGroup& group, const char* signal) {
  if (!group.set_signal_data(signal, std::span(ALL_ONES).first(widthInBytes(group, signal)))) {
    LOG.error("Unable to set_signal_data on ", signal);
  }
}

/// A value that the signal cannot hold (a dilution of 30 in a street canyon) often stays so for minutes, so
/// only the first is a warning.
void logRefused(const SignalRow& row, const std::string& topic, bool refused) {
  static std::set<const SignalRow*> told;  // of all publishers: each row is one signal of the unit
  if (!refused) {
    told.erase(&row);
    return;
  }
  const bool first = told.insert(&row).second;
  if (!first && !GnssUtils::debugIt(logflag::SIGNAL_GROUPS)) return;
  LOG.log(first ? logging::Level::WARNING : logging::Level::DEBUG, "Unable to set_signal_scaled_value on ",
          row.signal, " SignalGroup for ", topic);
}

}  // namespace

void fillSignals(rt::SignalGroup& group, std::span<const SignalRow> rows, const GnssInfo& info) {
  for (const SignalRow& row : rows) {
    const double value = row.value(info);
    if (!std::isnan(value)) {
      logRefused(row, group.topic(), !group.set_signal_scaled_value(row.signal, value));
      continue;
    }
    LOG.detail(logflag::PUBLICATION, " ", row.label, " ",
               [&] { return pattern(widthInBytes(group, row.signal)); });
    setNotAvailable(group, row.signal);
  }
}

void fillNotAvailable(rt::SignalGroup& group, std::span<const SignalRow> rows) {
  for (const SignalRow& row : rows) setNotAvailable(group, row.signal);
}

}  // namespace ecu::koru::gpspub
