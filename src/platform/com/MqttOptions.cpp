#include "platform/com/MqttOptions.h"

#include <mosquittopp.h>
#include <sys/stat.h>

#include <fstream>

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

template <typename... Parts>
void refuse(const char* key, const std::string& text, const Parts&... why) {
  LOG.error("Configuration: ", key, " = \"", logging::escaped(text), "\" ", why..., ", the default is used");
}

/// Leaves `value` unchanged if the key is absent or, after an ERROR record, not a number from 1 to `max`.
template <typename T>
void read_number(const config::Configuration& config, const char* key, int64_t max, T& value) {
  const std::string text = config.get(key);
  if (text.empty()) return;
  const auto number = to_int_within_base0(text, 1, max);
  if (!number) return refuse(key, text, "is no number from 1 to ", max);
  value = T(static_cast<typename std::conditional_t<std::is_integral_v<T>, T, int64_t>>(*number));
}

void read_text(const config::Configuration& config, const char* key, std::string& value,
               size_t max = MAX_TEXT_LENGTH) {
  std::string text = config.get(key);
  if (text.empty()) return;
  if (text.size() > max) return refuse(key, text, "is longer than ", max, " bytes");
  const int size = static_cast<int>(text.size());
  if (mosqpp::validate_utf8(text.c_str(), size) != MOSQ_ERR_SUCCESS)
    return refuse(key, text, "is no UTF-8 text");
  value = std::move(text);
}

bool readable(const char* key, const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (file.get() != std::ifstream::traits_type::eof()) return true;
  LOG.error("Configuration: the file of ", key, ", \"", logging::escaped(path),
            "\", cannot be read or is empty");
  return false;
}

bool is_this_machine(const std::string& host) {
  const bool is_address = host.find_first_not_of("0123456789.") == std::string::npos;
  return host == "localhost" || host == "ip6-localhost" || host == "::1" ||
         (is_address && host.starts_with("127."));
}

void warn_if_others_can_read(const char* key, const std::string& path) {
  struct stat file {};
  if (path.empty() || stat(path.c_str(), &file) != 0 || (file.st_mode & S_IROTH) == 0) return;
  LOG.warning("Configuration: the file of ", key, ", \"", logging::escaped(path),
              "\", can be read by everybody; chmod o-r");
}

bool needs(const char* key, const std::string& value, const char* other_key, const std::string& other) {
  if (value.empty() || !other.empty()) return true;
  LOG.error("Configuration: ", key, " = \"", logging::escaped(value), "\" needs ", other_key, " too");
  return false;
}

}  // namespace

MqttOptions read_mqtt_options(const config::Configuration& config) {
  MqttOptions options;
  read_text(config, "host", options.host);
  read_number(config, "port", 65535, options.port);
  read_text(config, "client_name", options.client_name, MAX_CLIENT_NAME_LENGTH);
  read_text(config, "username", options.username);
  options.password_file = config.get("password_file");
  options.tls_ca = config.get("tls_ca");
  options.tls_cert = config.get("tls_cert");
  options.tls_key = config.get("tls_key");
  read_number(config, "connect_timeout_ms", MAX_TIMEOUT_MS, options.connect_timeout);
  read_number(config, "var_timeout_ms", MAX_TIMEOUT_MS, options.var_timeout);
  return options;
}

bool check_mqtt_files(const MqttOptions& options) {
  bool good = needs("password_file", options.password_file, "username", options.username);
  good &= needs("tls_cert", options.tls_cert, "tls_ca", options.tls_ca);
  good &= needs("tls_cert", options.tls_cert, "tls_key", options.tls_key);
  good &= needs("tls_key", options.tls_key, "tls_cert", options.tls_cert);
  const std::pair<const char*, const std::string&> files[] = {{"password_file", options.password_file},
                                                              {"tls_ca", options.tls_ca},
                                                              {"tls_cert", options.tls_cert},
                                                              {"tls_key", options.tls_key}};
  for (const auto& [key, path] : files) good &= path.empty() || readable(key, path);
  return good;
}

void warn_of_open_secrets(const MqttOptions& options) {
  if (!options.username.empty() && options.tls_ca.empty() && !is_this_machine(options.host)) {
    LOG.warning("Configuration: username \"", logging::escaped(options.username), "\" goes to \"",
                logging::escaped(options.host),
                "\" without TLS, where others can read it and the password; set tls_ca");
  }
  warn_if_others_can_read("password_file", options.password_file);
  warn_if_others_can_read("tls_key", options.tls_key);
}

std::optional<std::string> read_password(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::string text(MAX_PASSWORD_LENGTH + 2, '\0');
  file.read(text.data(), static_cast<std::streamsize>(text.size()));
  text.resize(static_cast<size_t>(file.gcount()));
  text.resize(std::min(text.find('\n'), text.size()));
  if (text.ends_with('\r')) text.pop_back();
  if (!text.empty() && text.size() <= MAX_PASSWORD_LENGTH && text.find('\0') == std::string::npos)
    return text;
  LOG.error("Configuration: the first line of password_file \"", logging::escaped(path), "\" is no password");
  return std::nullopt;
}

}  // namespace ecu::koru::com
