#include "observe/GnssObserver.h"

#include <algorithm>
#include <array>
#include <optional>

#include "platform/com/PbInternalMessageAdapter.h"
#include "platform/rt/Signals.h"
#include "proto/nvxproto.pb.h"
#include "wire/HexDump.h"
#include "wire/ServiceLog.h"

namespace ecu::koru::gpspub {

namespace {

constexpr size_t MAX_LOG_CONFIG = 4;

/// A constellation's switch and its bit in the wanted mask.
struct SystemSwitch {
  const std::string& topic;
  uint32_t bit;
  const char* text;
};
const std::array<SystemSwitch, 4> SYSTEM_SWITCHES{
    {{topic::PARAMETER_GPS, 0x01, "GnssObserver::GPS = "},
     {topic::PARAMETER_GLONASS, 0x02, "GnssObserver::GLONASS = "},
     {topic::PARAMETER_BEIDOU, 0x04, "GnssObserver::BEIDOU = "},
     {topic::PARAMETER_GALILEO, 0x08, "GnssObserver::GALILEO = "}}};

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
  m_radio_silence = (*value)[0] == 1;
  if (GnssUtils::debugIt(logflag::RADIO_SILENCE)) {
    LOG.detail("GnssObserver::m_radio_silence = ", m_radio_silence.load());
  }
}

void GnssObserver::onHwVersion(const std::string& topic, const com::Message& message) {
  const auto value = unpackSignal(topic, message, "hw_version");
  if (!value) return;
  setHwVersion(*value);
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

/// Handles the topics whose body is a pb::RtSignal.
void GnssObserver::onParameter(const std::string& topic, const com::Message& message) {
  const auto* const system = std::find_if(SYSTEM_SWITCHES.begin(), SYSTEM_SWITCHES.end(),
                                          [&](const SystemSwitch& row) { return row.topic == topic; });
  const bool known = system != SYSTEM_SWITCHES.end() || topic == m_topic_gnss_system_enable ||
                     topic == m_topic_gnss_antenna_power || topic == m_topic_log_config;
  if (!known) {
    logUnknown(topic, message);
    return;
  }
  const auto result = com::PbInternalMessageAdapter<pb::RtSignal>(1).deserialize(message);
  if (!result.success || result.body.value().empty()) {
    logUndecodable(topic);
    return;
  }
  const auto value = static_cast<uint8_t>(result.body.value()[0]);
  if (topic == m_topic_gnss_system_enable) {
    onGnssOn(value);
  } else if (topic == m_topic_gnss_antenna_power) {
    onAntennaPower(value);
  } else if (topic == m_topic_log_config) {
    onLogConfig(result.body.value());
  } else {
    if (GnssUtils::debugIt(logflag::SYSTEM_PARAMETERS)) LOG.detail(system->text, value);
    m_control.setGnssSystem(system->bit, value == 1);
    m_control.restartSequence();
  }
}

void GnssObserver::onGnssOn(uint8_t value) {
  if (GnssUtils::debugIt(logflag::SYSTEM_PARAMETERS)) LOG.detail("GPSDClient.m_gnss_on = ", value);
  m_control.setGnssOn(value == 1);
}

void GnssObserver::onAntennaPower(uint8_t value) {
  if (GnssUtils::debugIt(logflag::SYSTEM_PARAMETERS)) LOG.detail("GPSDClient.setGnssAntennaOn = ", value);
  m_control.setGnssAntennaOn(value == 1);
  m_control.restartSequence();
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

std::string GnssObserver::hwVersion() const {
  const std::lock_guard lock(m_mutex);
  return m_hw_version;
}

void GnssObserver::setHwVersion(const std::string& version) {
  const std::lock_guard lock(m_mutex);
  m_hw_version = version;
}

}  // namespace ecu::koru::gpspub
