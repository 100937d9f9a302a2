#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

namespace ecu::koru::rt {

/// Why a DBC text cannot be used, with the line, counted from 1; 0 is the file as a whole.
class DbcProblem : public std::runtime_error {
 public:
  DbcProblem(unsigned line, const std::string& reason) : std::runtime_error(reason), m_line(line) {}
  [[nodiscard]] unsigned line() const { return m_line; }

 private:
  unsigned m_line;
};

/// Cuts a DBC text into words, numbers, strings and single characters. Blanks, line ends and what stands
/// behind `//` separate them. Throws DbcProblem when something else stands there than was asked for.
class DbcScanner {
 public:
  /// The text must outlive the scanner.
  explicit DbcScanner(std::string_view text);

  [[nodiscard]] bool at_end() const { return m_position == m_text.size(); }
  /// Of what comes next.
  [[nodiscard]] unsigned line() const { return m_line; }
  /// The word that comes next: a letter or underscore, then also digits. Empty when something else comes.
  [[nodiscard]] std::string_view peek_word() const;
  [[nodiscard]] bool next_is(char character) const { return !at_end() && m_text[m_position] == character; }

  /// Takes the character if it comes next.
  bool accept(char character);
  void expect(char character);
  /// `what` names in the failure what was expected.
  std::string_view word(std::string_view what);
  uint32_t whole_number(std::string_view what);
  double number(std::string_view what);
  /// The text between double quotes; a quote or a backslash in it stands behind a backslash.
  std::string string(std::string_view what);
  /// Whatever comes next.
  void skip();

  /// What comes next, for a reason.
  [[nodiscard]] std::string shown() const;
  /// Fails where what is missing should stand.
  [[noreturn]] void fail_expected(std::string_view what) const;

 private:
  std::string_view take(size_t length);
  void skip_blanks();
  [[nodiscard]] std::string_view raw_string();

  std::string_view m_text;
  size_t m_position = 0;
  unsigned m_line = 1;
  unsigned m_last_line = 1;  // of what was taken last
};

}  // namespace ecu::koru::rt
