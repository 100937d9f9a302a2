#include "platform/com/MqttOptions.h"

#include <mosquittopp.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <type_traits>
#include <utility>

#include "platform/base/Logging.h"
#include "platform/base/Numbers.h"

namespace ecu::koru::com {

namespace {

constexpr auto LOG = logging::module("koru.com.mqtt");

constexpr int64_t MAX_TIMEOUT_MS = 600'000;
constexpr size_t MAX_TEXT_LENGTH = 65535;  // the protocol's limit
constexpr size_t MAX_PASSWORD_LENGTH = MAX_TEXT_LENGTH;
// The client library cuts its log lines after some 500 bytes, and the connection needs the words
// after the name.
constexpr size_t MAX_CLIENT_NAME_LENGTH = 256;

using config::Finding;
using logging::Level;
using Findings = std::vector<Finding>;
using Key = config::Key<MqttOptions>;

template <auto Member>
std::string shown(const MqttOptions& options) {
  const auto& value = options.*Member;
  if constexpr (std::is_integral_v<std::remove_cvref_t<decltype(value)>>) {
    return std::to_string(value);
  } else if constexpr (std::is_convertible_v<decltype(value), std::string>) {
    return value;
  } else {
    return std::to_string(value.count());
  }
}

template <auto Member, typename... Parts>
Finding refused(std::string_view key, const std::string& text, const MqttOptions& options,
                const Parts&... why) {
  return {key, Level::ERROR,
          logging::text("Configuration: ", key, " = \"", logging::escaped(text), "\" ", why...,
                        ", the default is used"),
          shown<Member>(options)};
}

/// Leaves the value unchanged if the key is absent or not a number from 1 to `MAX`.
template <auto Member, int64_t MAX>
std::optional<Finding> read_number(std::string_view key, const std::string& text, MqttOptions& options) {
  if (text.empty()) return std::nullopt;
  const auto number = to_int_within_base0(text, 1, MAX);
  if (!number) return refused<Member>(key, text, options, "is no number from 1 to ", MAX);
  using Value = std::remove_reference_t<decltype(options.*Member)>;
  options.*Member =
      Value(static_cast<std::conditional_t<std::is_integral_v<Value>, Value, int64_t>>(*number));
  return std::nullopt;
}

template <auto Member, size_t MAX = MAX_TEXT_LENGTH>
std::optional<Finding> read_text(std::string_view key, const std::string& text, MqttOptions& options) {
  if (text.empty()) return std::nullopt;
  if (text.size() > MAX) return refused<Member>(key, text, options, "is longer than ", MAX, " bytes");
  if (mosqpp::validate_utf8(text.c_str(), static_cast<int>(text.size())) != MOSQ_ERR_SUCCESS)
    return refused<Member>(key, text, options, "is no UTF-8 text");
  options.*Member = text;
  return std::nullopt;
}

template <auto Member>
std::optional<Finding> read_path(std::string_view /*key*/, const std::string& text, MqttOptions& options) {
  options.*Member = text;
  return std::nullopt;
}

constexpr const char* FROM_1_TO_600000 = "1 to 600000";

constexpr std::array<Key, 10> KEYS{{
    {"host", "a name or an address", read_text<&MqttOptions::host>, shown<&MqttOptions::host>},
    {"port", "1 to 65535", read_number<&MqttOptions::port, 65535>, shown<&MqttOptions::port>},
    {"client_name", "a text in UTF-8 of up to 256 bytes",
     read_text<&MqttOptions::client_name, MAX_CLIENT_NAME_LENGTH>, shown<&MqttOptions::client_name>},
    {"username", "a text in UTF-8", read_text<&MqttOptions::username>, shown<&MqttOptions::username>},
    {"password_file", "a file, not readable for everybody, whose first line is the password; needs username",
     read_path<&MqttOptions::password_file>, shown<&MqttOptions::password_file>},
    {"tls_ca", "a PEM file with certificates", read_path<&MqttOptions::tls_ca>, shown<&MqttOptions::tls_ca>},
    {"tls_cert", "a PEM file with a certificate; needs tls_ca and tls_key", read_path<&MqttOptions::tls_cert>,
     shown<&MqttOptions::tls_cert>},
    {"tls_key", "a PEM file with the key of tls_cert, not readable for everybody, without pass phrase",
     read_path<&MqttOptions::tls_key>, shown<&MqttOptions::tls_key>},
    {"connect_timeout_ms", FROM_1_TO_600000, read_number<&MqttOptions::connect_timeout, MAX_TIMEOUT_MS>,
     shown<&MqttOptions::connect_timeout>},
    {"var_timeout_ms", FROM_1_TO_600000, read_number<&MqttOptions::var_timeout, MAX_TIMEOUT_MS>,
     shown<&MqttOptions::var_timeout>},
}};

constexpr const char* NO_CONNECTION = "no connection is made";

void add_if_unreadable(Findings& findings, std::string_view key, const std::string& path) {
  if (path.empty()) return;
  std::ifstream file(path, std::ios::binary);
  if (file.get() != std::ifstream::traits_type::eof()) return;
  findings.push_back({key, Level::ERROR,
                      logging::text("Configuration: the file of ", key, ", \"", logging::escaped(path),
                                    "\", cannot be read or is empty"),
                      NO_CONNECTION});
}

bool is_this_machine(const std::string& host) {
  const bool is_address = host.find_first_not_of("0123456789.") == std::string::npos;
  return host == "localhost" || host == "ip6-localhost" || host == "::1" ||
         (is_address && host.starts_with("127."));
}

void add_if_others_can_read(Findings& findings, std::string_view key, const std::string& path) {
  struct stat file {};
  if (path.empty() || stat(path.c_str(), &file) != 0 || (file.st_mode & S_IROTH) == 0) return;
  findings.push_back({key,
                      Level::WARNING,
                      logging::text("Configuration: the file of ", key, ", \"", logging::escaped(path),
                                    "\", can be read by everybody; chmod o-r"),
                      {}});
}

void add_if_alone(Findings& findings, std::string_view key, const std::string& value,
                  std::string_view other_key, const std::string& other) {
  if (value.empty() || !other.empty()) return;
  findings.push_back({key, Level::ERROR,
                      logging::text("Configuration: ", key, " = \"", logging::escaped(value), "\" needs ",
                                    other_key, " too"),
                      NO_CONNECTION});
}

}  // namespace

std::span<const Key> mqtt_keys() {
  return KEYS;
}

MqttOptions read_mqtt_options(const config::Configuration& config) {
  MqttOptions options;
  for (const auto& finding : config::read_keys(config, mqtt_keys(), options)) config::log(LOG, finding);
  return options;
}

Findings file_faults(const MqttOptions& options) {
  Findings findings;
  add_if_alone(findings, "password_file", options.password_file, "username", options.username);
  add_if_alone(findings, "tls_cert", options.tls_cert, "tls_ca", options.tls_ca);
  add_if_alone(findings, "tls_cert", options.tls_cert, "tls_key", options.tls_key);
  add_if_alone(findings, "tls_key", options.tls_key, "tls_cert", options.tls_cert);
  add_if_unreadable(findings, "password_file", options.password_file);
  add_if_unreadable(findings, "tls_ca", options.tls_ca);
  add_if_unreadable(findings, "tls_cert", options.tls_cert);
  add_if_unreadable(findings, "tls_key", options.tls_key);
  return findings;
}

Findings open_secrets(const MqttOptions& options) {
  Findings findings;
  if (!options.username.empty() && options.tls_ca.empty() && !is_this_machine(options.host)) {
    findings.push_back(
        {"username",
         Level::WARNING,
         logging::text("Configuration: username \"", logging::escaped(options.username), "\" goes to \"",
                       logging::escaped(options.host),
                       "\" without TLS, where others can read it and the password; set tls_ca"),
         {}});
  }
  add_if_others_can_read(findings, "password_file", options.password_file);
  add_if_others_can_read(findings, "tls_key", options.tls_key);
  return findings;
}

Password password_of(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::string text(MAX_PASSWORD_LENGTH + 2, '\0');
  file.read(text.data(), static_cast<std::streamsize>(text.size()));
  text.resize(static_cast<size_t>(file.gcount()));
  text.resize(std::min(text.find('\n'), text.size()));
  if (text.ends_with('\r')) text.pop_back();
  if (!text.empty() && text.size() <= MAX_PASSWORD_LENGTH && text.find('\0') == std::string::npos)
    return {std::move(text), std::nullopt};
  return {std::nullopt, Finding{"password_file", Level::ERROR,
                                logging::text("Configuration: the first line of password_file \"",
                                              logging::escaped(path), "\" is no password"),
                                NO_CONNECTION}};
}

bool check_mqtt_files(const MqttOptions& options) {
  const auto faults = file_faults(options);
  for (const auto& fault : faults) config::log(LOG, fault);
  return faults.empty();
}

void warn_of_open_secrets(const MqttOptions& options) {
  for (const auto& finding : open_secrets(options)) config::log(LOG, finding);
}

std::optional<std::string> read_password(const std::string& path) {
  auto [text, finding] = password_of(path);
  if (finding) config::log(LOG, *finding);
  return std::move(text);
}

}  // namespace ecu::koru::com
