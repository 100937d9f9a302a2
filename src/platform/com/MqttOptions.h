#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "platform/base/Configuration.h"
#include "platform/base/Keys.h"

namespace ecu::koru::com {

/// The configuration of the broker; an empty text means "not given".
struct MqttOptions {
  std::string host = "127.0.0.1";
  uint16_t port = 1883;
  std::string client_name = "satnavd";
  std::string username;
  std::string password_file;
  std::string tls_ca;  ///< switches TLS on
  std::string tls_cert;
  std::string tls_key;
  std::chrono::milliseconds connect_timeout{10000};
  std::chrono::milliseconds var_timeout{2000};
};

/// The keys of MqttOptions.
[[nodiscard]] std::span<const config::Key<MqttOptions>> mqtt_keys();

/// Reads the keys of MqttOptions. For a value that makes no sense, logs an ERROR with key and value and
/// uses the default.
[[nodiscard]] MqttOptions read_mqtt_options(const config::Configuration& config);

/// Returns why no connection can be made: user name, password file and TLS files that are incomplete or
/// cannot be read.
[[nodiscard]] std::vector<config::Finding> file_faults(const MqttOptions& options);

/// Returns a login that leaves this machine without TLS, and each password or key file that everybody can
/// read.
[[nodiscard]] std::vector<config::Finding> open_secrets(const MqttOptions& options);

/// The first line of a password file, or why it cannot be a password.
struct Password {
  std::optional<std::string> text;
  std::optional<config::Finding> finding;
};
[[nodiscard]] Password password_of(const std::string& path);

/// Logs file_faults() at ERROR and returns true if there are none.
[[nodiscard]] bool check_mqtt_files(const MqttOptions& options);

/// Logs open_secrets() at WARNING.
void warn_of_open_secrets(const MqttOptions& options);

/// Returns the text of password_of(), or nothing after an ERROR record.
[[nodiscard]] std::optional<std::string> read_password(const std::string& path);

}  // namespace ecu::koru::com
