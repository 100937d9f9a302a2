#include "platform/Signals.h"

#include <algorithm>

#include "platform/PbInternalMessageAdapter.h"
#include "proto/nvxproto.pb.h"

namespace ecu::koru::rt {

namespace {

constexpr std::string_view SYSTEM_PREFIX = "rt/system/";
constexpr size_t MAX_RAW_SIGNAL = 64;
constexpr uint16_t PROTOCOL_TYPE = 1;

/// The name of a raw system signal; empty for any other topic.
std::string_view systemSignal(std::string_view topic) {
  if (!topic.starts_with(SYSTEM_PREFIX)) return {};
  const std::string_view name = topic.substr(SYSTEM_PREFIX.size());
  return name.find('/') == std::string_view::npos ? name : std::string_view();
}

}  // namespace

const Signal* SignalGroup::signal(std::string_view name) const {
  const auto found = std::find_if(m_signals.begin(), m_signals.end(),
                                  [=](const Signal& each) { return each.m_name == name; });
  return found != m_signals.end() ? &*found : nullptr;
}

bool SignalGroup::set_signal_data(std::string_view name, const std::vector<uint8_t>& data) {
  if (data.empty() || data.size() > MAX_RAW_SIGNAL) return false;
  for (Signal& each : m_signals) {
    if (each.m_name != name) continue;
    each.m_data = data;
    return true;
  }
  return false;
}

SignalAdapter& SignalAdapter::instance() {
  static SignalAdapter adapter;
  return adapter;
}

SignalGroup SignalAdapter::create_sg(const std::string& topic) const {
  const std::string_view name = systemSignal(topic);
  if (name.empty()) return {};
  return {topic, {Signal(std::string(name), {0xFF})}};
}

std::optional<com::Message> SignalAdapter::pack(const SignalGroup& group) const {
  if (!group.is_valid()) return std::nullopt;
  pb::RtSignal body;
  for (const Signal& each : group.signals())
    body.mutable_value()->append(each.data().begin(), each.data().end());
  com::Message message;
  if (!com::PbInternalMessageAdapter<pb::RtSignal>(PROTOCOL_TYPE).serialize(body, message))
    return std::nullopt;
  return message;
}

UnpackResult SignalAdapter::unpack(const std::string& topic, const com::Message& message) const {
  const std::string_view name = systemSignal(topic);
  if (name.empty()) return {false, {}, "the topic has no signal group"};
  const auto result = com::PbInternalMessageAdapter<pb::RtSignal>(PROTOCOL_TYPE).deserialize(message);
  if (!result.success) return {false, {}, "the envelope cannot be decoded"};
  const std::string& value = result.body.value();
  if (value.empty()) return {false, {}, "the payload is empty"};
  if (value.size() > MAX_RAW_SIGNAL) return {false, {}, "the payload is too long"};
  return {true, {topic, {Signal(std::string(name), {value.begin(), value.end()})}}, {}};
}

}  // namespace ecu::koru::rt
