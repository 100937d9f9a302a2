#include "app/ApplyConfiguration.h"

#include <string_view>
#include <utility>
#include <vector>

#include "input/LinkRecorder.h"
#include "platform/rt/Signals.h"
#include "wire/ServiceLog.h"

namespace ecu::koru::gpspub {

namespace {

constexpr uint64_t MIB = 1U << 20U;

/// Logs what was found about a key. Call it only if the file's value is used.
void logFindings(const Settings& settings, std::string_view key) {
  for (const auto& finding : settings.findings)
    if (finding.key == key) config::log(LOG, finding);
}

void applyBaudRate(const Options& options, const Settings& settings, GPSDClient& service) {
  if (options.baud_rate != 0) {
    if (!service.setBaudRate(options.baud_rate)) LOG.error("baud rate not supported ", options.baud_rate);
    return;
  }
  logFindings(settings, "baud_rate");
  service.setBaudRate(settings.baud_rate);
}

void applyHardwareInit(const Options& options, const Settings& settings, GPSDClient& service) {
  const Switch& disabled = settings.disable_hw_init;
  if (options.disable_hw_init) {
    LOG.debug("arg_disable_hw_init ", options.disable_hw_init);
  } else if (service.simulation()) {
    LOG.debug("disable_hw_init_str0 true");
  } else if (disabled.text == "true") {
    LOG.debug("disable_hw_init_str1 ", disabled.text);
  } else if (disabled.text == "1") {
    LOG.debug("disable_hw_init_str2 ", disabled.text);
  } else {
    logFindings(settings, "disable_hw_init");
    return;
  }
  service.disableHardwareInit();
}

void applyGnssSystem(const Options& options, GPSDClient& service) {
  if (options.gnss_system == 0) return;
  service.requests().setGnssSystemRequested(options.gnss_system);
  LOG.info("arg gnss_system = 0x", logging::hex(options.gnss_system));
}

void applySystemSelection(const Settings& settings, GPSDClient& service) {
  const std::string& text = settings.disable_mqtt_system_selection.text;
  if (text == "true") {
    LOG.debug("disable_mqtt_system_selection_str1 ", text);
  } else if (text == "1") {
    LOG.debug("disable_mqtt_system_selection_str2 ", text);
  } else {
    logFindings(settings, "disable_mqtt_system_selection");
    service.enableMqttSystemSelection();
  }
}

void applyAugmentation(const Options& options, const Settings& settings, GPSDClient& service) {
  if (options.augmentation != 0) {
    service.ubloxConfig().setGnssAugmentationRequested(options.augmentation);
    LOG.info("arg gnss_augmentation = 0x", logging::hex(options.augmentation));
    return;
  }
  logFindings(settings, "gnss_augmentation");
  if (const auto mask = settings.gnss_augmentation) {
    service.ubloxConfig().setGnssAugmentationRequested(*mask);
    LOG.info("gnss_augmentation = 0x", logging::hex(*mask));
  }
}

void applySystemTime(const Settings& settings, GPSDClient& service) {
  logFindings(settings, "set_system_time");
  service.setSystemTimeEnabled(settings.set_system_time.on);
}

void applyLogLevel(const Options& options, const Settings& settings) {
  if (options.log_level.empty()) logging::configure_logging(settings.log_level);
}

void applyDebugFlags(const Options& options, const Settings& settings, GPSDClient& service) {
  if (options.debug_flags_given) return;
  logFindings(settings, "debugflags");
  if (const auto flags = settings.debug_flags) {
    GnssUtils::setLogFlags(*flags);
    service.enableLoggingControl();
  }
}

void applyRawCommands(const Settings& settings, GPSDClient& service) {
  std::vector<std::string> commands;
  for (const std::string& command : settings.raw_cmd_post)
    if (!command.empty()) commands.push_back(command);
  for (const auto& finding : settings.findings)
    if (finding.key.starts_with("raw_cmd_post")) config::log(LOG, finding);
  service.ubloxConfig().setRawCmdPost(std::move(commands));
}

void applyRadioSilence(const Settings& settings, GPSDClient& service) {
  logFindings(settings, "radio_silence_configured");
  const Switch& configured = settings.radio_silence_configured;
  if (!configured.on) return;
  service.setRadioSilenceConfigured(true);
  LOG.info("radio_silence_configured = ", configured.text);
}

}  // namespace

void applyLogMode(const Settings& settings) {
  if (settings.log_mode) logging::set_log_mode(*settings.log_mode);
}

void applySignalDatabase(const Settings& settings) {
  const std::string& path = settings.signal_database;
  if (!path.empty()) rt::SignalAdapter::instance().load_database(path);
}

std::string healthTopic(const Settings& settings) {
  logFindings(settings, "health_topic");
  return settings.health_topic;
}

UnitHardware unitHardware(const Settings& settings) {
  UnitHardware hardware;
  if (settings.record_link.empty()) return hardware;
  logFindings(settings, "record_link_size");
  hardware.recorder = std::make_shared<LinkRecorder>(
      LinkRecorder::Options{settings.record_link, uint64_t{settings.record_link_size} * MIB});
  return hardware;
}

void applyConfiguration(const Options& options, const Settings& settings, GPSDClient& service) {
  applyBaudRate(options, settings, service);
  applyHardwareInit(options, settings, service);
  applyGnssSystem(options, service);
  applySystemSelection(settings, service);
  applyAugmentation(options, settings, service);
  applySystemTime(settings, service);
  applyLogLevel(options, settings);
  applyDebugFlags(options, settings, service);
  applyRawCommands(settings, service);
  applyRadioSilence(settings, service);
}

}  // namespace ecu::koru::gpspub
