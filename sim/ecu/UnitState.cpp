#include "sim/ecu/UnitState.h"

#include <cstdio>

#include "platform/com/PbInternalMessageAdapter.h"
#include "platform/com/Topics.h"

namespace ecu::koru::sim {

namespace {

// Topics on which other programs of the unit talk to the service at run time.
const std::string BLACKOUT_MODE = "rt/system/blackout_mode";
const std::string HARDWARE_VERSION = "rt/system/hw_version";
const std::string GNSS_SOURCE = "system/gnss/source";
const std::string LOG_CONFIG = "system/gnss/log_config";

constexpr uint32_t FLAG_HAS_OTAID = 0x1;

template <typename Body>
Publication enveloped(const std::string& topic, const Body& body, bool retained) {
  Publication out{.topic = topic, .message = {}};
  com::PbInternalMessageAdapter<Body> adapter(1);
  if (!adapter.serialize(body, out.message))
    throw std::runtime_error("cannot serialize a message for " + topic);
  out.message.retained = retained;
  return out;
}

Publication signal(const std::string& topic, const std::string& value, bool retained) {
  pb::RtSignal body;
  body.set_value(value);
  return enveloped(topic, body, retained);
}

std::string truth(bool value) {
  return std::string(1, value ? '\1' : '\0');
}

std::string parameter_topic(uint32_t id) {
  char topic[40];
  (void)std::snprintf(topic, sizeof topic, "system/sysparam/0x%08X", id);
  return topic;
}

}  // namespace

struct UnitState::Apply {
  UnitState& unit;
  using Said = std::vector<Publication>;

  Said operator()(const SetVariable& c) const {
    unit.m_variables[c.name] = c.text;
    return {signal(topic::VARIABLE_PREFIX + c.name, c.text, true)};
  }
  Said operator()(const SetParameter& c) const {
    auto& entry = (*unit.m_parameters.mutable_entries())[c.id];
    entry.set_flags(c.has_otaid ? FLAG_HAS_OTAID : 0);
    entry.set_value(c.value);
    return {unit.parameter_map(), signal(parameter_topic(c.id), c.value, false)};
  }
  Said operator()(const SetTimeZone& c) const {
    unit.m_time_zone = c.zone;
    return {enveloped(topic::TIME_ZONE, c.zone, unit.m_retain_all)};
  }
  Said operator()(const SetBlackout& c) const {
    unit.m_blackout = c.on;
    return {signal(BLACKOUT_MODE, truth(c.on), unit.m_retain_all)};
  }
  Said operator()(const SetHardwareVersion& c) const {
    unit.m_hardware_version = c.text;
    return {signal(HARDWARE_VERSION, c.text, unit.m_retain_all)};
  }
  Said operator()(const AnnounceSource& c) const {
    pb::GnssSource body;
    body.set_source(c.source);
    return {enveloped(GNSS_SOURCE, body, false)};
  }
  Said operator()(const SetLogFlags& c) const { return {signal(LOG_CONFIG, c.value, false)}; }
  Said operator()(const SendRaw& c) const {
    Publication out{.topic = c.topic, .message = {}};
    out.message.payload.assign(c.payload.begin(), c.payload.end());
    out.message.valid = true;
    out.message.retained = c.retained;
    return {out};
  }
  Said operator()(const ShowHelp&) const { return {}; }
  Said operator()(const Quit&) const { return {}; }
};

std::vector<Publication> UnitState::apply(const Command& command) {
  return std::visit(Apply{*this}, command);
}

std::vector<Publication> UnitState::everything() const {
  std::vector<Publication> out;
  for (const auto& [name, text] : m_variables)
    out.push_back(signal(topic::VARIABLE_PREFIX + name, text, true));
  if (m_time_zone) out.push_back(enveloped(topic::TIME_ZONE, *m_time_zone, m_retain_all));
  if (m_blackout) out.push_back(signal(BLACKOUT_MODE, truth(*m_blackout), m_retain_all));
  if (m_hardware_version) out.push_back(signal(HARDWARE_VERSION, *m_hardware_version, m_retain_all));
  out.push_back(parameter_map());
  return out;
}

Publication UnitState::parameter_map() const {
  return enveloped(topic::SYSTEM_PARAMETERS, m_parameters, true);
}

}  // namespace ecu::koru::sim
