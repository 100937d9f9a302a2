#include "app/ApplyConfiguration.h"

#include <array>
#include <stdexcept>
#include <utility>
#include <vector>

#include "platform/base/Numbers.h"
#include "platform/rt/Signals.h"
#include "wire/HexDump.h"
#include "wire/ServiceLog.h"

namespace ecu::koru::gpspub {

namespace {

using config::Configuration;

constexpr uint32_t DEFAULT_BAUD_RATE = 38400;
constexpr int RAW_COMMANDS = 5;

struct KeyDefault {
  const char* key;
  const char* value;
};
constexpr std::array<KeyDefault, 7> DEFAULTS{{{"logmode", "SYSLOG"},
                                              {"baud_rate", "38400"},
                                              {"disable_hw_init", "false"},
                                              {"gnss_system", "03"},
                                              {"set_system_time", "false"},
                                              {"radio_silence_configured", "true"},
                                              {"disable_mqtt_system_selection", "false"}}};
constexpr std::array<const char*, 4> KEYS_WITHOUT_DEFAULT{"gnss_device", "gnss_augmentation", "loglevel",
                                                          "debugflags"};

bool isTrue(const std::string& text) {
  return text == "true" || text == "1";
}

/// Warns of a text that may be meant as true but is not taken as true.
void warnUnlessTruthValue(const char* key, const std::string& text, const char* taken) {
  if (isTrue(text) || text == "false" || text == "0" || text.empty()) return;
  LOG.warning(key, " = \"", logging::escaped(text), "\" is not true, 1, false or 0; ", taken);
}

std::string rawCommandKey(int index) {
  return "raw_cmd_post[" + std::to_string(index) + "]";
}

uint32_t configuredBaudRate(const Configuration& config) {
  const std::string text = config.get("baud_rate");
  try {
    return to_u32_base0(text);
  } catch (const std::invalid_argument&) {
    LOG.error("baud rate invalid ", logging::escaped(text));
  } catch (const std::exception& error) {
    LOG.error("configProp error ", error.what());
  }
  return DEFAULT_BAUD_RATE;
}

void applyBaudRate(const Options& options, const Configuration& config, GPSDClient& service) {
  const uint32_t baud = options.baud_rate != 0 ? options.baud_rate : configuredBaudRate(config);
  if (!service.setBaudRate(baud)) LOG.error("baud rate not supported ", baud);
}

void applyHardwareInit(const Options& options, const Configuration& config, GPSDClient& service) {
  const std::string text = config.get("disable_hw_init");
  if (options.disable_hw_init) {
    LOG.debug("arg_disable_hw_init ", options.disable_hw_init);
  } else if (service.simulation()) {
    LOG.debug("disable_hw_init_str0 true");
  } else if (text == "true") {
    LOG.debug("disable_hw_init_str1 ", text);
  } else if (text == "1") {
    LOG.debug("disable_hw_init_str2 ", text);
  } else {
    warnUnlessTruthValue("disable_hw_init", text, "it is taken as false");
    return;
  }
  service.disableHardwareInit();
}

void applyGnssSystem(const Options& options, GPSDClient& service) {
  if (options.gnss_system == 0) return;
  service.requests().setGnssSystemRequested(options.gnss_system);
  LOG.info("arg gnss_system = 0x", logging::hex(options.gnss_system));
}

void applySystemSelection(const Configuration& config, GPSDClient& service) {
  const std::string text = config.get("disable_mqtt_system_selection");
  if (text == "true") {
    LOG.debug("disable_mqtt_system_selection_str1 ", text);
  } else if (text == "1") {
    LOG.debug("disable_mqtt_system_selection_str2 ", text);
  } else {
    warnUnlessTruthValue("disable_mqtt_system_selection", text, "it is taken as false");
    service.enableMqttSystemSelection();
  }
}

void applySystemTime(const Configuration& config, GPSDClient& service) {
  const std::string text = config.get("set_system_time");
  warnUnlessTruthValue("set_system_time", text, "it is taken as false");
  service.setSystemTimeEnabled(isTrue(text));
}

void applyAugmentation(const Options& options, const Configuration& config, GPSDClient& service) {
  if (options.augmentation != 0) {
    service.ubloxConfig().setGnssAugmentationRequested(options.augmentation);
    LOG.info("arg gnss_augmentation = 0x", logging::hex(options.augmentation));
    return;
  }
  const std::string text = config.get("gnss_augmentation");
  if (text.empty()) return;
  try {
    const uint32_t mask = to_u32_base0(text);
    service.ubloxConfig().setGnssAugmentationRequested(mask);
    LOG.info("gnss_augmentation = 0x", logging::hex(mask));
  } catch (const std::exception&) {
    LOG.error("gnss_augmentation invalid ", logging::escaped(text));
  }
}

void applyLogLevel(const Options& options, const Configuration& config) {
  if (options.log_level.empty()) logging::configure_logging(config.get("loglevel"));
}

void applyDebugFlags(const Options& options, const Configuration& config, GPSDClient& service) {
  const std::string text = config.get("debugflags");
  if (options.debug_flags_given || text.empty()) return;
  try {
    GnssUtils::setLogFlags(to_u32_base0(text));
    service.enableLoggingControl();
  } catch (const std::exception&) {
    LOG.error("fine_debug_flags invalid ", logging::escaped(text));
  }
}

void applyRawCommands(const Configuration& config, GPSDClient& service) {
  std::vector<std::string> commands;
  for (int i = 0; i < RAW_COMMANDS; ++i) {
    const std::string text = config.get(rawCommandKey(i));
    std::string command;
    if (text.empty()) continue;
    if (GnssUtils::hexToBinary(text, command)) {
      commands.push_back(std::move(command));
    } else {
      LOG.debug("Hex to bin error in hex_raw_cmd_post at pos ", command.size() * 2, " in ",
                logging::escaped(text));
    }
  }
  service.ubloxConfig().setRawCmdPost(std::move(commands));
}

void applyRadioSilence(const Configuration& config, GPSDClient& service) {
  const std::string text = config.get("radio_silence_configured");
  if (!isTrue(text)) {
    if (!text.empty())
      LOG.warning("radio_silence_configured = \"", logging::escaped(text),
                  "\" is neither true nor 1, radio silence is heeded all the same");
    return;
  }
  service.setRadioSilenceConfigured(true);
  LOG.info("radio_silence_configured = ", text);
}

}  // namespace

void registerKeys(Configuration& config) {
  for (const KeyDefault& row : DEFAULTS) config.add_optional_key(row.key);
  for (const KeyDefault& row : DEFAULTS) config.set_default(row.key, row.value);
  for (const char* key : KEYS_WITHOUT_DEFAULT) config.add_optional_key(key);
  for (int i = 0; i < RAW_COMMANDS; ++i) config.add_optional_key(rawCommandKey(i));
}

void applyLogMode(const Configuration& config) {
  const std::string mode = config.get("logmode");
  if (mode == "STDOUT") logging::set_log_mode(logging::LogMode::STDOUT);
  if (mode == "SYSLOG") logging::set_log_mode(logging::LogMode::SYSLOG);
  if (mode == "STDERR") logging::set_log_mode(logging::LogMode::STDERR);
}

void applySignalDatabase(const Configuration& config) {
  const std::string path = config.get("signal_database");
  if (!path.empty()) rt::SignalAdapter::instance().load_database(path);
}

void applyConfiguration(const Options& options, const Configuration& config, GPSDClient& service) {
  applyBaudRate(options, config, service);
  applyHardwareInit(options, config, service);
  applyGnssSystem(options, service);
  applySystemSelection(config, service);
  applyAugmentation(options, config, service);
  applySystemTime(config, service);
  applyLogLevel(options, config);
  applyDebugFlags(options, config, service);
  applyRawCommands(config, service);
  applyRadioSilence(config, service);
}

}  // namespace ecu::koru::gpspub
