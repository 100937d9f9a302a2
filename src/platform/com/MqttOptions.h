#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "platform/base/Configuration.h"

namespace ecu::koru::com {

/// What the configuration says about the broker; empty texts are "not given".
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

/// The keys of MqttOptions. A value that makes no sense is an ERROR record that names key and value, and its
/// default is used.
[[nodiscard]] MqttOptions read_mqtt_options(const config::Configuration& config);

/// True when user name, password file and TLS files are complete and can be read; otherwise each reason is an
/// ERROR record that names key and file.
[[nodiscard]] bool check_mqtt_files(const MqttOptions& options);

/// One WARNING record each for a login that leaves this machine without TLS, and for a password or key file
/// that everybody can read.
void warn_of_open_secrets(const MqttOptions& options);

/// The password file's first line; nothing, after an ERROR record, when it cannot be a password.
[[nodiscard]] std::optional<std::string> read_password(const std::string& path);

}  // namespace ecu::koru::com
