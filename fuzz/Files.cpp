// Files that the service reads: the configuration with everything derived from it, and the signal database.

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>
#include <set>
#include <sstream>

#include "app/ApplyConfiguration.h"
#include "fuzz/FuzzTarget.h"
#include "input/SerialInput.h"
#include "platform/base/Logging.h"
#include "platform/com/MqttOptions.h"
#include "platform/rt/DbcReader.h"
#include "platform/rt/Signals.h"
#include "support/FakeTerminal.h"

namespace fuzz {

using namespace ecu::koru;
using namespace ecu::koru::gpspub;

namespace {

std::unique_ptr<config::Configuration> configuration_of(const std::string& text) {
  auto config = std::make_unique<config::Configuration>();
  registerKeys(*config);
  std::istringstream file(text);
  config::set_config_from_input(config, file);
  return config;
}

/// Checks that values survive being written to a file and read again.
void check_rewritten(const config::Configuration& config) {
  constexpr std::array KEYS{"host",        "port",          "client_name",       "username",
                            "tls_ca",      "logmode",       "gnss_device",       "baud_rate",
                            "debugflags",  "loglevel",      "signal_database",   "raw_cmd_post[0]",
                            "gnss_system", "password_file", "gnss_augmentation", "connect_timeout_ms"};
  std::string written;
  for (const char* key : KEYS) written += std::string(key) + "=\"" + config.get(key) + "\"\r\n";
  const auto again = configuration_of(written);
  require(again->verify(), "values that were read make a configuration");
  for (const char* key : KEYS) require(again->get(key) == config.get(key), "a value survives being written");
}

void check_mqtt_options(const config::Configuration& config) {
  const com::MqttOptions options = com::read_mqtt_options(config);
  require(options.port != 0, "a port is not 0");
  require(options.connect_timeout.count() >= 0 && options.var_timeout.count() >= 0, "a time is not negative");
  require(!options.host.empty() && !options.client_name.empty(), "a broker and a client have names");
}

void check_applied(const config::Configuration& config) {
  std::shared_ptr<com::ITransportClient> bus = std::make_shared<com::MemoryTransport>();
  UnitHardware hardware{std::make_unique<SerialInput>(std::make_unique<test::FakeTerminal>()), "/nowhere"};
  GPSDClient service(bus, "variant", "true", "zpt", "/dev/ttyFP3", std::move(hardware));
  const Settings settings = readSettings(config);
  applyConfiguration(Options(), settings, service);
  const auto& raw = service.ubloxConfig().rawCmdPost();
  require(raw.size() <= 5, "there are five raw commands");
  applyLogMode(settings);
}

void check_group(const rt::GroupDefinition& group) {
  require(group.length >= 1 && group.length <= rt::GroupDefinition::MAX_LENGTH, "a group has 1 to 64 bytes");
  require(!group.tx_topic.empty() || !group.rx_topic.empty(), "a group has a topic");
  std::set<unsigned> taken;
  for (const auto& signal : group.signals) {
    require(signal.width >= 1 && signal.width <= 64, "a signal has 1 to 64 bits");
    require(signal.start_bit + signal.width <= group.length * 8, "a signal lies in its group");
    for (unsigned bit = 0; bit < signal.width; ++bit) {
      require(taken.insert(signal.start_bit + bit).second, "signals do not overlap");
    }
  }
}

/// Unpacks bytes into a group, then reads its signals and sets them again.
void check_packing(const rt::SignalAdapter& adapter, const std::string& topic, Bytes payload) {
  auto result = adapter.unpack(topic, enveloped_signal(payload));
  require(result.success || payload.size() < adapter.create_sg(topic).definition().length,
          "a payload that is long enough is one of the group");
  if (!result.success) return;
  rt::SignalGroup& group = result.group;
  const std::vector<uint8_t> before(group.bytes().begin(), group.bytes().end());
  for (const auto& signal : std::as_const(group).signals()) {
    const bool valid = signal.status() == rt::SignalStatus::VALID;
    require(valid == std::isfinite(signal.value_scaled()), "a valid signal has a value, no other has");
    require(group.set_signal_data(signal.name(), signal.data()), "a signal takes its own bytes");
  }
  require(std::equal(before.begin(), before.end(), group.bytes().begin()), "what is set again is the same");
  for (const auto& signal : std::as_const(group).signals()) {
    const bool taken = group.set_signal_scaled_value(signal.name(), signal.value_scaled());
    require(taken == (signal.status() == rt::SignalStatus::VALID),
            "a value that is not taken is not available");
  }
  const auto packed = adapter.pack(group);
  require(packed && adapter.unpack(topic, *packed).success, "a group that is packed can be unpacked");
}

}  // namespace

/// Input: a configuration file.
void configuration(Bytes bytes) {
  const std::string file = text(bytes);
  const auto config = configuration_of(file);
  const bool verified = config->verify();
  require(verified || !file.empty(), "an empty configuration is one");
  require(!verified || file.find('\0') == std::string::npos, "a NUL byte is refused");
  check_rewritten(*config);
  check_mqtt_options(*config);
  check_applied(*config);
}

/// Input: a signal database, a NUL byte, and a payload for its groups.
void signals(Bytes bytes) {
  const auto nul = std::find(bytes.begin(), bytes.end(), uint8_t{0});
  const auto length = static_cast<size_t>(nul - bytes.begin());
  const std::string file = text(bytes.first(length));
  const rt::DbcResult result = rt::parse_dbc(file, "file\n.dbc");
  if (!result.database) {
    const auto lines = static_cast<unsigned>(std::count(file.begin(), file.end(), '\n'));
    require(!result.error.reason.empty() && result.error.line <= lines + 1,
            "an error has a reason and a line");
    logging::module("fuzz").error(result.error.text());
    return;
  }
  Input payload(nul != bytes.end() ? bytes.subspan(length + 1) : Bytes());
  const rt::SignalAdapter adapter(result.database);
  for (const auto& group : result.database->groups()) {
    check_group(group);
    for (const auto& topic : {group.tx_topic, group.rx_topic}) {
      if (topic.empty()) continue;
      require(result.database->find(topic) == &group, "a topic leads to its group");
      check_packing(adapter, topic, payload.take(group.length + 1));
    }
  }
}

}  // namespace fuzz
