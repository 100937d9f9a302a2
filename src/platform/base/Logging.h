#pragma once

#include <charconv>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>

/// Writes log records at syslog's levels to the system's log, standard output or standard error. Any thread
/// may log, and logging never waits: if the destination accepts nothing, records are lost, and "N records
/// lost" follows as soon as it accepts records again.
namespace ecu::koru::logging {

/// The numbers are syslog's severities.
enum class Level : int { EMERG = 0, ALERT, CRITICAL, ERROR, WARNING, NOTICE, INFO, DEBUG };

enum class LogMode : int { SYSLOG = 0, STDOUT = 1, STDERR = 2 };

inline constexpr Level DEFAULT_LEVEL = Level::INFO;

/// Returns the level's name as the command line and the configuration spell it ("WARNING").
[[nodiscard]] std::string_view level_name(Level level);

/// Returns the record about a level name that does not exist.
[[nodiscard]] std::string unknown_level(std::string_view name);
/// Returns true if a level has this name.
[[nodiscard]] bool is_level(std::string_view name);

/// Sets the level by its name; an empty name changes nothing. If the name is unknown, logs an ERROR, keeps
/// the level and returns false.
bool configure_logging(const std::string& level);

/// Sets where records go from now on. Before the first call they go to standard error.
void set_log_mode(LogMode mode);

[[nodiscard]] Level get_log_level();

[[nodiscard]] bool enabled(Level level);

/// Identifies the statement that logs a record by its place in the sources, for the limit of 50 records
/// in 10 s. Made where a record is logged, from the record's first part.
class Opening {
 public:
  template <typename T>
  requires std::convertible_to<const T&, std::string_view>
  // NOLINTNEXTLINE(google-explicit-constructor)
  Opening(const T& text, const char* file = __builtin_FILE(), unsigned line = __builtin_LINE())
      : m_text(text), m_file(file), m_line(line) {}

  [[nodiscard]] std::string_view text() const { return m_text; }
  [[nodiscard]] const char* file() const { return m_file; }
  [[nodiscard]] unsigned line() const { return m_line; }

 private:
  std::string_view m_text;
  const char* m_file;
  unsigned m_line;
};

/// Writes one record: "2026-11-21T10:15:30.123Z NOTICE module: text". The system's log gets only the text,
/// from "satnavd" in the daemon facility.
void write(Level level, std::string_view module, std::string_view text);
/// Does the same within the statement's limit.
void write_limited(const Opening& opening, Level level, std::string_view module, std::string_view text);

/// Writes "N records lost" if the log accepts records again, and "N more like: ..." for each statement whose
/// 10 s are over. Call it from time to time, so that no count waits for the next record; without a count it
/// costs one atomic load.
void tell_kept_back();
/// Does the same at the end of the process, for every statement with records kept back.
void tell_all_kept_back();

/// For tests: receives the records instead of the log; nullptr restores the log.
using Sink = void (*)(Level level, std::string_view module, std::string_view text);
void set_sink(Sink sink);

/// The most bytes of text from outside that one record shows.
inline constexpr size_t MAX_OUTSIDE_TEXT = 200;

/// Makes bytes from outside safe for a log line or a terminal: those outside 0x20..0x7E become \xHH, and
/// "..." stands for the bytes beyond `max_bytes`.
[[nodiscard]] std::string escaped(std::string_view bytes, size_t max_bytes = MAX_OUTSIDE_TEXT);

/// A number that a log text shows in hexadecimal without prefix.
struct Hex {
  uint64_t value;
  int digits;
};
[[nodiscard]] constexpr Hex hex(uint64_t value, int min_digits = 1) {
  return {value, min_digits};
}

namespace detail {

void append(std::string& out, std::string_view text);
void append(std::string& out, Hex value);
void append(std::string& out, double value);

template <typename T>
requires std::is_integral_v<T>
void append(std::string& out, T value) {
  if constexpr (std::is_same_v<T, char>) {
    out.push_back(value);
  } else {
    using Wide = std::conditional_t<std::is_unsigned_v<T>, unsigned long long, long long>;
    char digits[24];
    const auto end = std::to_chars(digits, digits + sizeof digits, static_cast<Wide>(value)).ptr;
    out.append(digits, end);
  }
}

}  // namespace detail

/// Joins the parts of a text: texts, characters, hex() and numbers. An unsigned char is a number, a bool is 1
/// or 0. Ignores the locale.
template <typename... Parts>
[[nodiscard]] std::string text(const Parts&... parts) {
  std::string out;
  (detail::append(out, parts), ...);
  return out;
}

/// A named source of records. A record that the level does not admit is not even formatted.
class Module {
 public:
  explicit constexpr Module(std::string_view name) : m_name(name) {}
  [[nodiscard]] constexpr std::string_view name() const { return m_name; }

  template <typename... Parts>
  void log(Level level, const Opening& opening, const Parts&... parts) const {
    if (enabled(level)) write_limited(opening, level, m_name, text(opening.text(), parts...));
  }
  template <typename... Parts>
  void alert(const Opening& opening, const Parts&... parts) const {
    log(Level::ALERT, opening, parts...);
  }
  template <typename... Parts>
  void error(const Opening& opening, const Parts&... parts) const {
    log(Level::ERROR, opening, parts...);
  }
  template <typename... Parts>
  void warning(const Opening& opening, const Parts&... parts) const {
    log(Level::WARNING, opening, parts...);
  }
  template <typename... Parts>
  void notice(const Opening& opening, const Parts&... parts) const {
    log(Level::NOTICE, opening, parts...);
  }
  template <typename... Parts>
  void info(const Opening& opening, const Parts&... parts) const {
    log(Level::INFO, opening, parts...);
  }
  template <typename... Parts>
  void debug(const Opening& opening, const Parts&... parts) const {
    log(Level::DEBUG, opening, parts...);
  }
  /// Writes a DEBUG record without the limit: whoever has switched such records on wants all of them.
  template <typename... Parts>
  void detail(const Parts&... parts) const {
    if (enabled(Level::DEBUG)) write(Level::DEBUG, m_name, text(parts...));
  }

 private:
  std::string_view m_name;
};

/// `name` must outlive the module, as a literal does.
[[nodiscard]] constexpr Module module(std::string_view name) {
  return Module(name);
}

}  // namespace ecu::koru::logging
