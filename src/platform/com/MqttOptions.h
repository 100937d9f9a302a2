#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "platform/base/Configuration.h"

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

/// Reads the keys of MqttOptions. For a value that makes no sense, logs an ERROR with key and value and
/// uses the default.
[[nodiscard]] MqttOptions read_mqtt_options(const config::Configuration& config);

/// Returns true if user name, password file and TLS files are complete and readable. Otherwise logs each
/// reason at ERROR with its key and file.
[[nodiscard]] bool check_mqtt_files(const MqttOptions& options);

/// Logs a WARNING for a login that leaves this machine without TLS and for each password or key file that
/// everybody can read.
void warn_of_open_secrets(const MqttOptions& options);

/// Returns the password file's first line, or nothing, after an ERROR record, if it cannot be a password.
[[nodiscard]] std::optional<std::string> read_password(const std::string& path);

}  // namespace ecu::koru::com
