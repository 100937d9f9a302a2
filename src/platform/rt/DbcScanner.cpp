#include "platform/rt/DbcScanner.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <system_error>

#include "platform/base/Logging.h"

namespace ecu::koru::rt {

namespace {

constexpr std::string_view BYTE_ORDER_MARK = "\xEF\xBB\xBF";
constexpr size_t MAX_SHOWN = 40;

bool is_letter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}

bool is_digit(char c) {
  return c >= '0' && c <= '9';
}

bool is_blank(char c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}

}  // namespace

DbcScanner::DbcScanner(std::string_view text) : m_text(text) {
  if (text.starts_with(BYTE_ORDER_MARK)) m_text.remove_prefix(BYTE_ORDER_MARK.size());
  skip_blanks();
}

void DbcScanner::skip_blanks() {
  while (!at_end()) {
    if (m_text.substr(m_position).starts_with("//")) {
      m_position = std::min(m_text.find('\n', m_position), m_text.size());
    } else if (is_blank(m_text[m_position])) {
      if (m_text[m_position++] == '\n') ++m_line;
    } else {
      return;
    }
  }
}

std::string_view DbcScanner::take(size_t length) {
  const std::string_view taken = m_text.substr(m_position, length);
  m_position += taken.size();
  m_line += static_cast<unsigned>(std::count(taken.begin(), taken.end(), '\n'));
  m_last_line = m_line;
  skip_blanks();
  return taken;
}

std::string_view DbcScanner::peek_word() const {
  if (at_end() || !is_letter(m_text[m_position])) return {};
  const auto* const begin = m_text.data() + m_position;
  const auto* const end = std::find_if_not(begin, m_text.data() + m_text.size(),
                                           [](char c) { return is_letter(c) || is_digit(c); });
  return {begin, static_cast<size_t>(end - begin)};
}

bool DbcScanner::accept(char character) {
  if (!next_is(character)) return false;
  take(1);
  return true;
}

void DbcScanner::expect(char character) {
  if (!accept(character)) fail_expected(std::string{'\'', character, '\''});
}

std::string_view DbcScanner::word(std::string_view what) {
  const std::string_view found = peek_word();
  if (found.empty()) fail_expected(what);
  return take(found.size());
}

uint32_t DbcScanner::whole_number(std::string_view what) {
  uint32_t value = 0;
  const auto* const begin = m_text.data() + m_position;
  const auto [end, error] = std::from_chars(begin, m_text.data() + m_text.size(), value);
  if (error != std::errc{}) fail_expected(what);
  take(static_cast<size_t>(end - begin));
  return value;
}

double DbcScanner::number(std::string_view what) {
  double value = 0;
  const auto* begin = m_text.data() + m_position;
  const auto* const text_end = m_text.data() + m_text.size();
  if (next_is('+') && begin + 1 != text_end && begin[1] != '-') ++begin;  // from_chars refuses a plus
  const auto [end, error] = std::from_chars(begin, text_end, value);
  if (error != std::errc{} || !std::isfinite(value)) fail_expected(what);
  take(static_cast<size_t>(end - m_text.data()) - m_position);
  return value;
}

std::string_view DbcScanner::raw_string() {
  for (size_t i = m_position + 1; i < m_text.size(); ++i) {
    if (m_text[i] == '\\') {
      ++i;
    } else if (m_text[i] == '"') {
      return take(i + 1 - m_position);
    }
  }
  throw DbcProblem(m_line, "the string that begins here does not end");
}

std::string DbcScanner::string(std::string_view what) {
  if (!next_is('"')) fail_expected(what);
  std::string_view raw = raw_string();
  raw = raw.substr(1, raw.size() - 2);
  std::string text;
  for (size_t i = 0; i < raw.size(); ++i) {
    const bool is_escape = raw[i] == '\\' && (raw[i + 1] == '"' || raw[i + 1] == '\\');
    if (is_escape) ++i;
    text.push_back(raw[i]);
  }
  return text;
}

void DbcScanner::skip() {
  if (next_is('"')) {
    (void)raw_string();
  } else {
    take(std::max<size_t>(peek_word().size(), 1));
  }
}

std::string DbcScanner::shown() const {
  if (at_end()) return "the end of the file";
  const std::string_view rest = m_text.substr(m_position, MAX_SHOWN);
  const auto* const end = std::find_if(rest.begin(), rest.end(), is_blank);
  return logging::text("'", logging::escaped(rest.substr(0, static_cast<size_t>(end - rest.begin()))), "'");
}

void DbcScanner::fail_expected(std::string_view what) const {
  const bool line_ended = !at_end() && m_line != m_last_line;
  throw DbcProblem(m_last_line, logging::text("expected ", what, ", found ",
                                              line_ended ? "the end of the line" : shown()));
}

}  // namespace ecu::koru::rt
