#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>

#include "platform/rt/Signals.h"
#include "proto/nvxproto.pb.h"

/// Decodes the messages of the bus, and signal groups with the signal database in use. For any thread.
namespace ecu::koru::tap {

using Body = std::variant<std::monostate, pb::RtSignal, pb::GnssData, pb::GnssSource, pb::GnssHealth,
                          pb::TimeZone, pb::SystemParameters>;

/// How the value bytes of a pb::RtSignal are shown.
enum class ValueView {
  bytes,   ///< a parameter's value
  text,    ///< an ECU variable
  signals  ///< a signal group, if the signal database has it
};

/// The content of a topic's messages: one row of the topic table.
struct TopicRow {
  std::string_view pattern;                       ///< a topic, or the start of topics followed by '#'
  std::string_view type;                          ///< the body's message type
  Body (*parse)(std::span<const uint8_t> bytes);  ///< reads such a body; monostate if it cannot
  ValueView view = ValueView::bytes;
  std::string_view group_topic = {};  ///< topic of the value's signal group; empty: the message's own
};

/// Returns the first row whose pattern the topic matches, or the row of signal groups if the signal database
/// has the topic; null if no message type is known for it.
[[nodiscard]] const TopicRow* find_topic(std::string_view topic);

struct Envelope {
  uint16_t protocol_type;
  uint16_t header_length;
  uint32_t body_length;
  uint64_t timestamp_ns;  ///< since boot, at serialization
};

/// A message, decoded as far as possible.
struct Decoded {
  std::optional<Envelope> envelope;  ///< empty if the header cannot be read
  const TopicRow* row = nullptr;     ///< null if no message type is known for the topic
  Body body;                         ///< monostate if there is a problem
  rt::SignalGroup group;             ///< not valid if the value is not a known signal group
  std::string problem;               ///< why it could not be decoded, with numbers; empty if it was
};

/// Decodes exactly the messages that the service accepts. `payload` need not outlive the result.
[[nodiscard]] Decoded decode(std::string_view topic, std::span<const uint8_t> payload);

}  // namespace ecu::koru::tap
