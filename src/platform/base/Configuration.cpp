#include "platform/base/Configuration.h"

#include <algorithm>
#include <array>
#include <utility>

#include "platform/base/Logging.h"
#include "platform/base/ReadText.h"

namespace ecu::koru::config {

namespace {

constexpr auto LOG = logging::module("koru.config");

constexpr std::string_view BLANKS = " \t\v\f";
constexpr size_t MAX_TEXT = 1 << 20;
constexpr size_t MAX_REPORTED = 20;
constexpr size_t MAX_SHOWN = 80;

// The keys that the platform itself reads; the service registers its own.
constexpr std::array<std::string_view, 11> PLATFORM_KEYS{
    "host",     "port",    "client_name",        "username",       "password_file",  "tls_ca",
    "tls_cert", "tls_key", "connect_timeout_ms", "var_timeout_ms", "signal_database"};

std::string_view trimmed(std::string_view text) {
  const auto first = text.find_first_not_of(BLANKS);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(BLANKS) - first + 1);
}

std::string_view unquoted(std::string_view value) {
  if (value.size() >= 2 && value.front() == '"' && value.back() == '"')
    return value.substr(1, value.size() - 2);
  return value;
}

/// Returns the start of the text, escaped so that a log record stays readable whatever the file holds.
std::string shown(std::string_view text) {
  return "'" + logging::escaped(text.substr(0, MAX_SHOWN)) + (text.size() > MAX_SHOWN ? "...'" : "'");
}

}  // namespace

bool Configuration::verify() const {
  for (size_t i = 0; i < std::min(m_problems.size(), MAX_REPORTED); ++i) {
    LOG.error("configuration line ", m_problems[i].line, ": ", m_problems[i].text);
  }
  if (m_problems.size() > MAX_REPORTED)
    LOG.error("", m_problems.size() - MAX_REPORTED, " more lines like these");
  for (const auto& [key, value] : m_values) {
    const bool known = m_optional_keys.contains(key) || m_defaults.contains(key) ||
                       std::find(PLATFORM_KEYS.begin(), PLATFORM_KEYS.end(), key) != PLATFORM_KEYS.end();
    if (!known) LOG.warning("configuration line ", value.line, ": unknown key ", shown(key), " ignored");
  }
  return m_problems.empty();
}

std::string Configuration::get(const std::string& key) const {
  if (const auto value = m_values.find(key); value != m_values.end()) return value->second.text;
  if (const auto value = m_defaults.find(key); value != m_defaults.end()) return value->second;
  return {};
}

void Configuration::read_line(std::string_view line, unsigned number) {
  const auto refuse = [&](std::string why) { m_problems.push_back({number, std::move(why)}); };
  if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
  if (line.find('\0') != std::string_view::npos) return refuse("expected text without NUL bytes");
  const std::string_view content = trimmed(line);
  if (content.empty() || content.front() == '#' || content.front() == ';') return;
  const auto equals = content.find('=');
  if (equals == std::string_view::npos)
    return refuse("expected 'key = value' or a comment, found " + shown(content));
  const std::string_view key = trimmed(content.substr(0, equals));
  if (key.empty()) return refuse("expected a key before '='");
  if (key.find_first_of(BLANKS) != std::string_view::npos)
    return refuse("expected a key without blanks, found " + shown(key));
  m_values[std::string(key)] = {std::string(unquoted(trimmed(content.substr(equals + 1)))), number};
}

void set_config_from_input(std::unique_ptr<Configuration>& config, std::istream& input) {
  config->m_values.clear();
  config->m_problems.clear();
  const std::string text = read_text(input, MAX_TEXT + 1);
  unsigned number = 0;
  for (size_t start = 0; start < text.size();) {
    const size_t end = std::min(text.find('\n', start), text.size());
    config->read_line(std::string_view(text).substr(start, end - start), ++number);
    start = end + 1;
  }
  if (text.size() > MAX_TEXT) config->m_problems.push_back({number, "expected at most 1 MiB of text"});
}

}  // namespace ecu::koru::config
