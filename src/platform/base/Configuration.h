#pragma once

#include <istream>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace ecu::koru::config {

/// The service's settings as texts: one `key = value` a line.
///
/// Blanks around key and value are dropped; a value may stand in double quotes to keep its blanks; '#' or ';'
/// at the start of a line begins a comment; CR LF is accepted. A key is any text without blanks or '='; of a
/// key given twice the last value holds. One thread at a time.
class Configuration {
 public:
  /// A key that may be absent. All others are unknown and reported by verify(), except those of the platform.
  void add_optional_key(const std::string& key) { m_optional_keys.insert(key); }
  /// What get() gives while the key is absent.
  void set_default(const std::string& key, const std::string& value) { m_defaults[key] = value; }

  /// False when the text held a line that is neither comment nor `key = value`, an empty key or a NUL byte,
  /// each reported in an ERROR record with its line number. A key that nobody knows is one WARNING and no
  /// failure.
  [[nodiscard]] bool verify() const;

  /// The value of the key, else its default, else an empty text.
  [[nodiscard]] std::string get(const std::string& key) const;

  /// Sets one value, as a line of the text would.
  void set(const std::string& key, const std::string& value) { m_values[key] = {value, 0}; }

 private:
  friend void set_config_from_input(std::unique_ptr<Configuration>&, std::istream&);
  struct Value {
    std::string text;
    unsigned line;  // 0: not from a text
  };
  struct Problem {
    unsigned line;
    std::string text;
  };
  void read_line(std::string_view line, unsigned number);

  std::map<std::string, Value> m_values;
  std::map<std::string, std::string> m_defaults;
  std::set<std::string> m_optional_keys;
  std::vector<Problem> m_problems;
};

/// Replaces the values of `config` by those of the text. Problems are kept for Configuration::verify().
void set_config_from_input(std::unique_ptr<Configuration>& config, std::istream& input);

}  // namespace ecu::koru::config
