#include "platform/base/Configuration.h"

#include <algorithm>
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
  for (size_t i = 0; i < std::min(m_faulty_lines.size(), MAX_REPORTED); ++i) {
    LOG.error("configuration line ", m_faulty_lines[i].line, ": ", m_faulty_lines[i].text);
  }
  if (m_faulty_lines.size() > MAX_REPORTED)
    LOG.error("", m_faulty_lines.size() - MAX_REPORTED, " more lines like these");
  for (const auto& [line, key] : unknown_keys())
    LOG.warning("configuration line ", line, ": unknown key ", shown(key), " ignored");
  return m_faulty_lines.empty();
}

std::vector<Configuration::LineNote> Configuration::unknown_keys() const {
  std::vector<LineNote> unknown;
  for (const auto& [key, value] : m_values) {
    if (!m_optional_keys.contains(key) && !m_defaults.contains(key)) unknown.push_back({value.line, key});
  }
  return unknown;
}

unsigned Configuration::line(const std::string& key) const {
  const auto value = m_values.find(key);
  return value == m_values.end() ? 0 : value->second.line;
}

std::string Configuration::get(const std::string& key) const {
  if (const auto value = m_values.find(key); value != m_values.end()) return value->second.text;
  if (const auto value = m_defaults.find(key); value != m_defaults.end()) return value->second;
  return {};
}

void Configuration::read_line(std::string_view line, unsigned number) {
  const auto refuse = [&](std::string why) { m_faulty_lines.push_back({number, std::move(why)}); };
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
  Value& value = m_values[std::string(key)];
  if (value.line != 0) m_overridden_lines.push_back({value.line, std::string(key)});
  value = {std::string(unquoted(trimmed(content.substr(equals + 1)))), number};
}

void set_config_from_input(std::unique_ptr<Configuration>& config, std::istream& input) {
  config->m_values.clear();
  config->m_faulty_lines.clear();
  config->m_overridden_lines.clear();
  const std::string text = read_text(input, MAX_TEXT + 1);
  unsigned number = 0;
  for (size_t start = 0; start < text.size();) {
    const size_t end = std::min(text.find('\n', start), text.size());
    config->read_line(std::string_view(text).substr(start, end - start), ++number);
    start = end + 1;
  }
  if (text.size() > MAX_TEXT) config->m_faulty_lines.push_back({number, "expected at most 1 MiB of text"});
}

}  // namespace ecu::koru::config
