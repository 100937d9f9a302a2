#include "tools/check/Secrets.h"

#include <algorithm>
#include <array>
#include <cctype>

#include "platform/base/Logging.h"

namespace ecu::koru::check {

namespace {

constexpr std::string_view HIDDEN = "(not shown)";
constexpr std::array<std::string_view, 5> SECRET_WORDS{"pass", "pwd", "secret", "token", "credential"};

bool sounds_secret(std::string_view text) {
  std::string lower(text);
  std::ranges::transform(lower, lower.begin(), [](unsigned char c) { return std::tolower(c); });
  return std::ranges::any_of(SECRET_WORDS,
                             [&](std::string_view word) { return lower.find(word) != std::string::npos; });
}

}  // namespace

bool is_secret(std::string_view key, std::string_view value) {
  if (value.empty()) return false;
  if (key == "password_file") return value.find('/') == std::string_view::npos;
  if (key == "host") return value.find('@') != std::string_view::npos;
  return sounds_secret(key);
}

std::string shown_value(std::string_view key, std::string_view value) {
  return is_secret(key, value) ? std::string(HIDDEN) : logging::escaped(value);
}

std::string without(std::string text, std::string_view value) {
  const std::string shown = logging::escaped(value);
  for (size_t at = 0; (at = text.find(shown, at)) != std::string::npos; at += HIDDEN.size())
    text.replace(at, shown.size(), HIDDEN);
  return text;
}

std::string without_secrets(const std::string& text) {
  const size_t found = text.find(", found ");
  if (found == std::string::npos || !sounds_secret(text.substr(found))) return text;
  return text.substr(0, found);
}

}  // namespace ecu::koru::check
