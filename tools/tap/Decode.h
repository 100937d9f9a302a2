#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>

#include "platform/rt/Signals.h"
#include "proto/nvxproto.pb.h"

/// Takes the messages of the bus apart, signal groups by the signal database in use. Any thread.
namespace ecu::koru::tap {

using Body = std::variant<std::monostate, pb::RtSignal, pb::GnssData, pb::GnssSource, pb::TimeZone,
                          pb::SystemParameters>;

/// How the value bytes of a pb::RtSignal are shown.
enum class ValueView {
  bytes,   ///< a parameter's value
  text,    ///< an ECU variable
  signals  ///< a signal group, where the signal database knows one
};

/// What the messages of a topic carry: one row of the topic table.
struct TopicRow {
  std::string_view pattern;  ///< a topic, or the start of many with '#' at its end
  std::string_view type;     ///< the body's message type
  Body (*make)();            ///< an empty body of that type
  ValueView view = ValueView::bytes;
  std::string_view group_topic = {};  ///< the topic whose signal group the value is; empty: the message's own
};

/// The first row whose pattern the topic matches, or that of signal groups when the signal database has the
/// topic; null when no message type is known for it.
[[nodiscard]] const TopicRow* find_topic(std::string_view topic);

struct Envelope {
  uint16_t protocol_type;
  uint16_t header_length;
  uint32_t body_length;
  uint64_t timestamp_ns;  ///< since boot, at serialization
};

/// A message taken apart as far as it could be.
struct Decoded {
  std::optional<Envelope> envelope;  ///< absent when the header cannot be read
  const TopicRow* row = nullptr;     ///< null when no message type is known for the topic
  Body body;                         ///< monostate when there is a problem
  rt::SignalGroup group;             ///< of a pb::RtSignal; not valid when its bytes are no known group
  std::string problem;               ///< why it could not be decoded, with its numbers; empty when it was
};

/// Accepts exactly what the service accepts. `payload` need not outlive the result.
[[nodiscard]] Decoded decode(std::string_view topic, std::span<const uint8_t> payload);

}  // namespace ecu::koru::tap
