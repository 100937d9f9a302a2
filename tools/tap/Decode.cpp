#include "tools/tap/Decode.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "platform/base/Logging.h"
#include "platform/com/PbInternalMessageAdapter.h"

namespace ecu::koru::tap {

namespace {

using com::envelope::HEADER_LENGTH;
using logging::text;

template <typename T>
Body parse(std::span<const uint8_t> bytes) {
  T body;
  const bool good = bytes.size() <= std::numeric_limits<int>::max() &&
                    body.ParseFromArray(bytes.data(), static_cast<int>(bytes.size()));
  return good ? Body(std::move(body)) : Body();
}

constexpr TopicRow TOPICS[] = {
    {"system/gnss/data", "GnssData", parse<pb::GnssData>},
    {"system/gnss/source", "GnssSource", parse<pb::GnssSource>},
    {"system/gnss/health", "GnssHealth", parse<pb::GnssHealth>},
    {"system/gnss/log_config", "RtSignal", parse<pb::RtSignal>},
    {"system/time/timezone", "TimeZone", parse<pb::TimeZone>},
    {"system/sysparams", "SystemParameters", parse<pb::SystemParameters>},
    {"system/sysparam/#", "RtSignal", parse<pb::RtSignal>},
    {"system/var/#", "RtSignal", parse<pb::RtSignal>, ValueView::text},
    {"rt/#", "RtSignal", parse<pb::RtSignal>, ValueView::signals},
    {"systime/td", "RtSignal", parse<pb::RtSignal>, ValueView::signals, "rt/j1939can/rx/td_fb"},
};
constexpr TopicRow OTHER_GROUP = {"", "RtSignal", parse<pb::RtSignal>, ValueView::signals};

bool matches(std::string_view pattern, std::string_view topic) {
  if (!pattern.ends_with('#')) return topic == pattern;
  pattern.remove_suffix(1);
  return topic.starts_with(pattern);
}

std::optional<Envelope> read_header(std::span<const uint8_t> payload) {
  pb::NVXHeader header;
  if (payload.size() < HEADER_LENGTH || !header.ParseFromArray(payload.data(), HEADER_LENGTH))
    return std::nullopt;
  const uint64_t word = header.header();
  return Envelope{.protocol_type = static_cast<uint16_t>(word),
                  .header_length = static_cast<uint16_t>(word >> 16),
                  .body_length = static_cast<uint32_t>(word >> 32),
                  .timestamp_ns = header.timestamp_ns()};
}

/// Returns what is wrong with the envelope; empty if nothing is.
std::string envelope_problem(const std::optional<Envelope>& envelope, size_t length) {
  if (length == 0) return "empty payload";
  if (length < HEADER_LENGTH) return text(length, " bytes are too short for the header of ", HEADER_LENGTH);
  if (!envelope) return "the header cannot be decoded";
  if (envelope->protocol_type == 0) return "protocol type 0";
  if (envelope->header_length != HEADER_LENGTH) {
    return text("header length ", envelope->header_length, " instead of ", HEADER_LENGTH);
  }
  const size_t after_header = length - HEADER_LENGTH;
  if (envelope->body_length > after_header) {
    return text("body length ", envelope->body_length, ", but only ", after_header,
                " bytes follow the header");
  }
  return {};
}

void read_group(std::string_view topic, std::span<const uint8_t> payload, Decoded& out) {
  const std::string group_topic(out.row->group_topic.empty() ? topic : out.row->group_topic);
  const auto& signals = rt::SignalAdapter::instance();
  if (!signals.create_sg(group_topic).is_valid()) return;
  com::Message message;
  message.payload.assign(payload.begin(), payload.end());
  rt::UnpackResult result = signals.unpack(group_topic, message);
  if (result.success) {
    out.group = std::move(result.group);
  } else {
    out.problem = std::move(result.error);
    out.body = {};
  }
}

}  // namespace

const TopicRow* find_topic(std::string_view topic) {
  const auto* const row = std::find_if(std::begin(TOPICS), std::end(TOPICS),
                                       [&](const auto& r) { return matches(r.pattern, topic); });
  if (row != std::end(TOPICS)) return row;
  return rt::SignalAdapter::instance().database()->find(topic) != nullptr ? &OTHER_GROUP : nullptr;
}

Decoded decode(std::string_view topic, std::span<const uint8_t> payload) {
  Decoded out{
      .envelope = read_header(payload), .row = find_topic(topic), .body = {}, .group = {}, .problem = {}};
  out.problem = envelope_problem(out.envelope, payload.size());
  if (!out.problem.empty()) return out;
  if (out.row == nullptr) {
    out.problem = "no message type is known for this topic";
    return out;
  }
  out.body = out.row->parse(payload.subspan(HEADER_LENGTH, out.envelope->body_length));
  if (std::holds_alternative<std::monostate>(out.body)) {
    out.problem = text("the body is no ", out.row->type);
  } else if (out.row->view == ValueView::signals) {
    read_group(topic, payload, out);
  }
  return out;
}

}  // namespace ecu::koru::tap
