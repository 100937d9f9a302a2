#pragma once

#include <istream>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace ecu::koru::config {

/// The service's settings as texts: one `key = value` per line.
///
/// Blanks around key and value are dropped; double quotes around a value keep its blanks. '#' or ';' at the
/// start of a line begins a comment. Lines may end with CR LF. A key is any text without blanks or '='. If a
/// key is given twice, the last value counts. One thread at a time may use it.
class Configuration {
 public:
  /// Something about a line of the text, which is counted from 1.
  struct LineNote {
    unsigned line;
    std::string text;
  };

  /// Registers a key that may be absent. verify() reports keys that are not registered and have no default.
  void add_optional_key(const std::string& key) { m_optional_keys.insert(key); }
  /// Sets the value that get() returns if the key is absent.
  void set_default(const std::string& key, const std::string& value) { m_defaults[key] = value; }

  /// Returns false if a line was neither blank, a comment nor `key = value` with a valid key, if it held a
  /// NUL byte, or if the text is longer than 1 MiB. Logs the first 20 faults at ERROR with their line
  /// numbers. An unknown key only logs a WARNING.
  [[nodiscard]] bool verify() const;

  /// Returns the value of the key, else its default, else an empty text.
  [[nodiscard]] std::string get(const std::string& key) const;

  /// Returns the lines that verify() fails for, each with what was expected there.
  [[nodiscard]] const std::vector<LineNote>& faulty_lines() const { return m_faulty_lines; }
  /// Returns the keys that verify() warns about.
  [[nodiscard]] std::vector<LineNote> unknown_keys() const;
  /// Returns the lines without effect, each with its key, which a later line gives again.
  [[nodiscard]] const std::vector<LineNote>& overridden_lines() const { return m_overridden_lines; }
  /// Returns the line that gives the key its value, or 0 if none does.
  [[nodiscard]] unsigned line(const std::string& key) const;

  /// Sets one value, as a line of the text would.
  void set(const std::string& key, const std::string& value) { m_values[key] = {value, 0}; }

 private:
  friend void set_config_from_input(std::unique_ptr<Configuration>&, std::istream&);
  struct Value {
    std::string text;
    unsigned line;  // 0: not from a text
  };
  void read_line(std::string_view line, unsigned number);

  std::map<std::string, Value> m_values;
  std::map<std::string, std::string> m_defaults;
  std::set<std::string> m_optional_keys;
  std::vector<LineNote> m_faulty_lines;
  std::vector<LineNote> m_overridden_lines;
};

/// Replaces the values of `config` by those of the text. Problems are kept for Configuration::verify().
void set_config_from_input(std::unique_ptr<Configuration>& config, std::istream& input);

}  // namespace ecu::koru::config
