#include "observe/GnssObserver.h"

#include <algorithm>
#include <optional>

#include "platform/com/PbInternalMessageAdapter.h"
#include "platform/rt/Signals.h"
#include "proto/nvxproto.pb.h"
#include "wire/HexDump.h"
#include "wire/ServiceLog.h"

namespace ecu::koru::gpspub {

namespace {

constexpr size_t MAX_LOG_CONFIG = 4;

void logUndecodable(const std::string& topic) {
  LOG.warning("Unable to deserialize data for topic ", logging::escaped(topic));
}

/// Returns the bytes of the signal `name`. Logs and returns nothing if the message does not hold it.
std::optional<std::string> unpackSignal(const std::string& topic, const com::Message& message,
                                        const char* name) {
  const auto result = rt::SignalAdapter::instance().unpack(topic, message);
  if (!result.success) {
    LOG.warning("Unable to unpack data for topic", topic);
    return std::nullopt;
  }
  const auto signal = result.group.signal(name);
  if (!signal) {
    LOG.warning("SignalGroup for topic", topic, " does not ", "contain ", name, " signal");
    return std::nullopt;
  }
  const std::vector<uint8_t> data = signal->data();
  return std::string(data.begin(), data.end());
}

void logUnknown(const std::string& topic, const com::Message& message) {
  const auto length = static_cast<int>(std::min<size_t>(message.payload.size(), 500));
  LOG.warning("Non Subscribed message received. Topic \"", logging::escaped(topic),
              "\". Hex dump of message. Len = ", message.payload.size(), "\n",
              hexDumpMessage(message.payload.data(), length, 50, 10, true));
}

}  // namespace

void GnssObserver::message(const std::string& topic, const com::Message& message) {
  if (topic == m_topic_radio_silence) {
    onRadioSilence(topic, message);
  } else if (topic == m_topic_hw_version) {
    onHwVersion(topic, message);
  } else if (topic == m_topic_gnss_source) {
    onGnssSource(topic, message);
  } else {
    onParameter(topic, message);
  }
}

void GnssObserver::onRadioSilence(const std::string& topic, const com::Message& message) {
  const auto value = unpackSignal(topic, message, "blackout_mode");
  if (!value) return;
  const bool silence = (*value)[0] == 1;
  m_control.setRadioSilence(silence);
  LOG.detail(logflag::RADIO_SILENCE, "GnssObserver::m_radio_silence = ", silence);
}

void GnssObserver::onHwVersion(const std::string& topic, const com::Message& message) {
  const auto value = unpackSignal(topic, message, "hw_version");
  if (!value) return;
  m_control.setHwVersion(*value);
  if (logging::enabled(logging::Level::DEBUG)) {
    LOG.debug("GnssObserver::m_hw_version = ", logging::escaped(*value));
  }
}

void GnssObserver::onGnssSource(const std::string& topic, const com::Message& message) {
  const auto result = com::PbInternalMessageAdapter<pb::GnssSource>(1).deserialize(message);
  if (!result.success) {
    logUndecodable(topic);
  } else if (!result.body.has_source()) {
    LOG.warning("There is no source field on message received on the topic ", topic);
  } else {
    LOG.debug("GnssSource = ", static_cast<int>(result.body.source()));
  }
}

/// Handles the parameters and the log flags, and logs any other topic.
void GnssObserver::onParameter(const std::string& topic, const com::Message& message) {
  const auto* const row = std::find_if(GNSS_PARAMETERS.begin(), GNSS_PARAMETERS.end(),
                                       [&](const GnssParameter& each) { return each.topic == topic; });
  const bool is_parameter = row != GNSS_PARAMETERS.end();
  if (!is_parameter && topic != m_topic_log_config) {
    logUnknown(topic, message);
    return;
  }
  const auto result = com::PbInternalMessageAdapter<pb::RtSignal>(1).deserialize(message);
  if (!result.success || result.body.value().empty()) {
    logUndecodable(topic);
    return;
  }
  if (!is_parameter) {
    onLogConfig(result.body.value());
    return;
  }
  const auto value = static_cast<uint8_t>(result.body.value()[0]);
  LOG.detail(logflag::SYSTEM_PARAMETERS, row->change_text, value);
  row->apply(m_control, value == 1);
  if (row->restarts) m_control.restartSequence();
}

/// `value` has 1 to 4 bytes, lowest first.
void GnssObserver::onLogConfig(const std::string& value) {
  if (value.size() > MAX_LOG_CONFIG) {
    logUndecodable(m_topic_log_config);
    return;
  }
  unsigned flags = 0;
  for (size_t i = 0; i < value.size(); ++i) flags |= unsigned{static_cast<uint8_t>(value[i])} << 8 * i;
  GnssUtils::setLogFlags(flags);
  LOG.info("log configuration flags = 0x", logging::hex(flags));
}

}  // namespace ecu::koru::gpspub
