#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

namespace ecu::koru::rt {

/// Says why a DBC text cannot be used and in which line, counted from 1; 0 is the file as a whole.
class DbcProblem : public std::runtime_error {
 public:
  DbcProblem(unsigned line, const std::string& reason) : std::runtime_error(reason), m_line(line) {}
  [[nodiscard]] unsigned line() const { return m_line; }

 private:
  unsigned m_line;
};

/// Cuts a DBC text into words, numbers, strings and single characters. Blanks, line ends and comments after
/// `//` separate them. Throws DbcProblem if the next item is not the one asked for.
class DbcScanner {
 public:
  /// The text must outlive the scanner.
  explicit DbcScanner(std::string_view text);

  [[nodiscard]] bool at_end() const { return m_position == m_text.size(); }
  /// Returns the line of the next item.
  [[nodiscard]] unsigned line() const { return m_line; }
  /// Returns the next word: letters, underscores and, after the first of them, digits; empty if
  /// none comes next.
  [[nodiscard]] std::string_view peek_word() const;
  [[nodiscard]] bool next_is(char character) const { return !at_end() && m_text[m_position] == character; }

  /// Takes the character if it comes next.
  bool accept(char character);
  void expect(char character);
  /// `what` names the expected item in the failure.
  std::string_view word(std::string_view what);
  uint32_t whole_number(std::string_view what);
  double number(std::string_view what);
  /// Takes the text between double quotes. A quote or backslash in it follows a backslash.
  std::string string(std::string_view what);
  /// Skips the next item.
  void skip();

  /// Returns the next item, for the text of a failure.
  [[nodiscard]] std::string shown() const;
  /// Throws DbcProblem for the line in which the missing item was expected.
  [[noreturn]] void fail_expected(std::string_view what) const;

 private:
  std::string_view take(size_t length);
  void skip_blanks();
  [[nodiscard]] std::string_view raw_string();

  std::string_view m_text;
  size_t m_position = 0;
  unsigned m_line = 1;
  unsigned m_last_line = 1;  // of the item taken last
};

}  // namespace ecu::koru::rt
