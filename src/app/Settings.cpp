#include "app/Settings.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "input/BaudRate.h"
#include "platform/base/Numbers.h"
#include "platform/com/MqttOptions.h"
#include "platform/com/Topics.h"
#include "platform/com/Transport.h"
#include "platform/rt/Signals.h"
#include "wire/HexDump.h"

namespace ecu::koru::gpspub {

namespace {

using config::Finding;
using logging::Level;
using Found = std::optional<Finding>;
using Key = config::Key<Settings>;

constexpr uint32_t DEFAULT_BAUD_RATE = 38400;
constexpr int64_t DEFAULT_RECORD_MIB = 64;
constexpr int64_t MAX_RECORD_MIB = 2000;  // so that every tool can read the file

bool isTrue(const std::string& text) {
  return text == "true" || text == "1";
}

// -- The reading functions

template <auto Member>
Found readText(std::string_view /*key*/, const std::string& text, Settings& settings) {
  settings.*Member = text;
  return std::nullopt;
}

/// Finds a text that may be meant as true but is not taken as true.
template <auto Member>
Found readSwitch(std::string_view key, const std::string& text, Settings& settings) {
  settings.*Member = {isTrue(text), text};
  if (isTrue(text) || text == "false" || text == "0" || text.empty()) return std::nullopt;
  return Finding{key, Level::WARNING,
                 logging::text(key, " = \"", logging::escaped(text),
                               "\" is not true, 1, false or 0; it is taken as false"),
                 "false"};
}

Found readRadioSilence(std::string_view key, const std::string& text, Settings& settings) {
  settings.radio_silence_configured = {isTrue(text), text};
  if (isTrue(text) || text.empty()) return std::nullopt;
  return Finding{key, Level::WARNING,
                 logging::text(key, " = \"", logging::escaped(text),
                               "\" is neither true nor 1, radio silence is heeded all the same"),
                 "true"};
}

Found readBaudRate(std::string_view key, const std::string& text, Settings& settings) {
  settings.baud_rate = DEFAULT_BAUD_RATE;
  const std::string taken = std::to_string(DEFAULT_BAUD_RATE);
  try {
    settings.baud_rate = to_u32_base0(text);
  } catch (const std::invalid_argument&) {
    return Finding{key, Level::ERROR, "baud rate invalid " + logging::escaped(text), taken};
  } catch (const std::exception& error) {
    return Finding{key, Level::ERROR, logging::text("configProp error ", error.what()), taken};
  }
  BaudRate rate;
  if (rate.set(settings.baud_rate)) return std::nullopt;
  return Finding{key, Level::ERROR, logging::text("baud rate not supported ", settings.baud_rate),
                 std::to_string(rate.bitsPerSecond())};
}

/// Reads an optional number. `record` begins the record about a text that is not a number.
template <auto Member>
Found readNumber(std::string_view key, const std::string& text, Settings& settings, const char* record,
                 const char* otherwise) {
  if (text.empty()) return std::nullopt;
  try {
    settings.*Member = to_u32_base0(text);
    return std::nullopt;
  } catch (const std::exception&) {
    return Finding{key, Level::ERROR, record + logging::escaped(text), otherwise};
  }
}

Found readAugmentation(std::string_view key, const std::string& text, Settings& settings) {
  return readNumber<&Settings::gnss_augmentation>(key, text, settings, "gnss_augmentation invalid ",
                                                  "by the systems");
}

Found readDebugFlags(std::string_view key, const std::string& text, Settings& settings) {
  return readNumber<&Settings::debug_flags>(key, text, settings, "fine_debug_flags invalid ", "0x1");
}

/// Returns true for a topic that has its own meaning on the unit or, with "$", for the broker.
bool isTaken(const std::string& topic) {
  constexpr std::array<std::string_view, 6> PREFIXES{
      "$", "rt/", "systime/", "system/var/", "system/sysparam", "system/time/"};
  return topic == topic::GNSS_DATA || topic == topic::GNSS_SOURCE || topic == topic::LOG_CONFIG ||
         std::ranges::any_of(PREFIXES, [&](std::string_view prefix) { return topic.starts_with(prefix); });
}

Found readHealthTopic(std::string_view key, const std::string& text, Settings& settings) {
  if (text.empty() || (com::is_publish_topic(text) && !isTaken(text))) {
    settings.health_topic = text;
    return std::nullopt;
  }
  return Finding{
      key, Level::ERROR,
      logging::text(
          key, " = \"", logging::escaped(text),
          "\" is not a topic to publish on, or it is taken; the state of the service is not published"),
      "none"};
}

Found readRecordSize(std::string_view key, const std::string& text, Settings& settings) {
  const auto size = to_int_within_base0(text, 1, MAX_RECORD_MIB);
  settings.record_link_size = static_cast<uint32_t>(size.value_or(DEFAULT_RECORD_MIB));
  if (size) return std::nullopt;
  return Finding{key, Level::WARNING,
                 logging::text(key, " = \"", logging::escaped(text), "\" is not a number from 1 to ",
                               MAX_RECORD_MIB, "; ", DEFAULT_RECORD_MIB, " MiB are used"),
                 std::to_string(DEFAULT_RECORD_MIB)};
}

Found readLogMode(std::string_view /*key*/, const std::string& text, Settings& settings) {
  if (text == "STDOUT") settings.log_mode = logging::LogMode::STDOUT;
  if (text == "SYSLOG") settings.log_mode = logging::LogMode::SYSLOG;
  if (text == "STDERR") settings.log_mode = logging::LogMode::STDERR;
  return std::nullopt;
}

Found readLogLevel(std::string_view key, const std::string& text, Settings& settings) {
  settings.log_level = text;
  if (text.empty() || logging::is_level(text)) return std::nullopt;
  return Finding{key, Level::ERROR, logging::unknown_level(text),
                 std::string(logging::level_name(logging::DEFAULT_LEVEL))};
}

template <size_t INDEX>
Found readRawCommand(std::string_view key, const std::string& text, Settings& settings) {
  std::string& command = settings.raw_cmd_post[INDEX];
  if (GnssUtils::hexToBinary(text, command)) return std::nullopt;
  const size_t position = std::exchange(command, {}).size() * 2;
  return Finding{
      key, Level::DEBUG,
      logging::text("Hex to bin error in hex_raw_cmd_post at pos ", position, " in ", logging::escaped(text)),
      "nothing is sent"};
}

// -- What was read, as a text

template <auto Member>
std::string shown(const Settings& settings) {
  const auto& value = settings.*Member;
  using Value = std::remove_cvref_t<decltype(value)>;
  if constexpr (std::is_same_v<Value, Switch>) {
    return value.on ? "true" : "false";
  } else if constexpr (std::is_same_v<Value, std::optional<uint32_t>>) {
    return value ? logging::text("0x", logging::hex(*value)) : std::string();
  } else if constexpr (std::is_same_v<Value, uint32_t>) {
    return std::to_string(value);
  } else {
    return value;
  }
}

std::string shownLogMode(const Settings& settings) {
  if (!settings.log_mode) return "STDERR";
  return *settings.log_mode == logging::LogMode::SYSLOG   ? "SYSLOG"
         : *settings.log_mode == logging::LogMode::STDOUT ? "STDOUT"
                                                          : "STDERR";
}

std::string shownRadioSilence(const Settings& /*settings*/) {
  return "true";
}

template <size_t INDEX>
std::string shownRawCommand(const Settings& settings) {
  const std::string& command = settings.raw_cmd_post[INDEX];
  return hexDumpMessage(reinterpret_cast<const unsigned char*>(command.data()),
                        static_cast<int>(command.size()), 0, 0, false);
}

// -- The table

template <auto Member>
constexpr Key text(std::string_view name, std::string_view allowed, std::string_view preset = {}) {
  return {name, allowed, readText<Member>, shown<Member>, preset};
}
template <auto Member>
constexpr Key truth(std::string_view name) {
  return {name, "true, 1, false or 0", readSwitch<Member>, shown<Member>, "false"};
}
template <size_t INDEX>
constexpr Key rawCommand(std::string_view name) {
  return {name, "a UBX frame in hexadecimal", readRawCommand<INDEX>, shownRawCommand<INDEX>};
}

constexpr std::array KEYS{
    Key{"logmode", "SYSLOG, STDOUT or STDERR", readLogMode, shownLogMode, "SYSLOG"},
    Key{"loglevel", "EMERG, ALERT, CRITICAL, ERROR, WARNING, NOTICE, INFO or DEBUG", readLogLevel,
        shown<&Settings::log_level>},
    Key{"debugflags", "a number: decimal, hexadecimal with 0x or octal with a leading 0", readDebugFlags,
        shown<&Settings::debug_flags>},
    text<&Settings::gnss_device>("gnss_device", "a serial port or /dev/spidev2.0"),
    Key{"baud_rate", "4800, 9600, 19200, 38400, 57600 or 115200", readBaudRate, shown<&Settings::baud_rate>,
        "38400"},
    truth<&Settings::disable_hw_init>("disable_hw_init"),
    Key{"gnss_augmentation", "1 SBAS, 2 QZSS, 4 IMES, added up", readAugmentation,
        shown<&Settings::gnss_augmentation>},
    text<&Settings::gnss_system>("gnss_system", "anything, it has no effect", "03"),
    truth<&Settings::set_system_time>("set_system_time"),
    Key{"radio_silence_configured", "true or 1", readRadioSilence, shownRadioSilence, "true"},
    truth<&Settings::disable_mqtt_system_selection>("disable_mqtt_system_selection"),
    rawCommand<0>("raw_cmd_post[0]"),
    rawCommand<1>("raw_cmd_post[1]"),
    rawCommand<2>("raw_cmd_post[2]"),
    rawCommand<3>("raw_cmd_post[3]"),
    rawCommand<4>("raw_cmd_post[4]"),
    text<&Settings::signal_database>("signal_database", "a DBC file"),
    Key{"health_topic", "a topic of its own, without + and #", readHealthTopic,
        shown<&Settings::health_topic>},
    text<&Settings::record_link>("record_link", "a file in a folder that the service may write"),
    Key{"record_link_size", "1 to 2000 (MiB)", readRecordSize, shown<&Settings::record_link_size>, "64"},
};

}  // namespace

std::span<const Key> settingsKeys() {
  return KEYS;
}

void registerKeys(config::Configuration& config) {
  config::add_keys(config, settingsKeys());
  config::add_keys(config, com::mqtt_keys());
}

Settings readSettings(const config::Configuration& config) {
  Settings settings;
  settings.findings = config::read_keys(config, settingsKeys(), settings);
  return settings;
}

}  // namespace ecu::koru::gpspub
