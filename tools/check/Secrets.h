#pragma once

#include <string>
#include <string_view>

namespace ecu::koru::check {

/// Returns true if a value may hold a password: that of a key that sounds like one, a password file without a
/// folder (it may be the password itself), a host with a login.
[[nodiscard]] bool is_secret(std::string_view key, std::string_view value);

/// Returns a value as it can be shown.
[[nodiscard]] std::string shown_value(std::string_view key, std::string_view value);

/// Returns the text with another one in place of the value.
[[nodiscard]] std::string without(std::string text, std::string_view value);

/// Returns the text about a faulty line, without what was found there if that may be a password.
[[nodiscard]] std::string without_secrets(const std::string& text);

}  // namespace ecu::koru::check
