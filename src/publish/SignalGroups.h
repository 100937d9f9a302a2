#pragma once

#include <limits>
#include <span>
#include <string>
#include <string_view>

#include "nmea/GnssInfo.h"
#include "platform/com/Transport.h"
#include "platform/rt/Signals.h"
#include "wire/ServiceLog.h"

namespace ecu::koru::gpspub {

// Every signal group is created, filled, packed and published by these functions. Each step logs its own
// failure. Service thread only.

/// The source of one signal's value.
struct SignalRow {
  const char* signal;
  const char* label;                 ///< for the debug record: where the value comes from
  double (*value)(const GnssInfo&);  ///< physical; NaN: not available
};

inline constexpr double SIGNAL_NOT_AVAILABLE = std::numeric_limits<double>::quiet_NaN();

/// The wording of a group's failures.
struct GroupTexts {
  const char* not_created = "Unable to create signal group for ";  ///< before the topic
  const char* after_topic = "";
  const char* not_packed = "Unable to pack SignalGroup for ";  ///< before the topic, or another subject
};

/// Fills the signals in the order of the rows; a signal without a value gets all ones. A signal that cannot
/// hold its value does not keep the others from being set.
void fillSignals(rt::SignalGroup& group, std::span<const SignalRow> rows, const GnssInfo& info);
/// Fills the signals of the rows with all ones.
void fillNotAvailable(rt::SignalGroup& group, std::span<const SignalRow> rows);

/// Packs the topic's group, which `fill` has filled, into `out`. Logs a failure and returns false.
template <typename Fill>
[[nodiscard]] bool createGroup(const std::string& topic, const GroupTexts& texts, std::string_view subject,
                               com::Message& out, Fill fill) {
  rt::SignalGroup group = rt::SignalAdapter::instance().create_sg(topic);
  if (group.is_valid()) {
    fill(group);
    if (rt::SignalAdapter::instance().pack(group, out)) return true;
    LOG.error(texts.not_packed, subject);
  } else {
    LOG.error(texts.not_created, topic, texts.after_topic);
  }
  return false;
}

/// Publishes the group that `create` packs from `args`, if it returns true.
template <typename Create, typename... Args>
void publishGroup(com::ITransportClient& client, const std::string& topic, Create create,
                  const Args&... args) {
  com::Message message;
  if (create(args..., message)) client.publish(topic, message);
}

}  // namespace ecu::koru::gpspub
