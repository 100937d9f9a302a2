#include "platform/base/Logging.h"

#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <limits>
#include <memory>
#include <mutex>

#include "platform/base/LogOutput.h"
#include "platform/base/RecordLimiter.h"
#include "platform/base/Time.h"

namespace ecu::koru::logging {

namespace {

constexpr std::array<std::string_view, 8> LEVEL_NAMES{"EMERG",   "ALERT",  "CRITICAL", "ERROR",
                                                      "WARNING", "NOTICE", "INFO",     "DEBUG"};

std::atomic<Level> g_level{DEFAULT_LEVEL};
std::atomic<LogMode> g_mode{LogMode::STDERR};
std::atomic<Sink> g_sink{nullptr};

constexpr Module LOG = module("koru.logging");

/// Appends "2026-11-21T10:15:30.123Z ".
void append_time_stamp(std::string& line) {
  const timeval now = time_source().wall();
  const time_t seconds = now.tv_sec;
  std::tm utc{};
  gmtime_r(&seconds, &utc);
  char stamp[64];
  const int length = std::snprintf(stamp, sizeof stamp, "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ ",
                                   utc.tm_year + 1900, utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min,
                                   utc.tm_sec, static_cast<int>(now.tv_usec / 1000));
  line.append(stamp, static_cast<size_t>(std::max(length, 0)));
}

/// Appends "<30>Nov 21 10:15:30 satnavd: ", as syslog(3) begins a record of the daemon facility.
void append_syslog_header(std::string& record, Level level) {
  static constexpr std::array MONTHS{"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                     "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  const time_t seconds = time_source().wall().tv_sec;
  std::tm local{};
  localtime_r(&seconds, &local);
  char header[64];
  const int length = std::snprintf(
      header, sizeof header, "<%d>%s %2d %02d:%02d:%02d satnavd: ", LOG_DAEMON | static_cast<int>(level),
      MONTHS[static_cast<size_t>(local.tm_mon)], local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec);
  record.append(header, static_cast<size_t>(std::max(length, 0)));
}

std::string formatted(LogMode mode, Level level, std::string_view module, std::string_view text) {
  std::string record;
  record.reserve(64 + module.size() + text.size());
  if (mode == LogMode::SYSLOG) {
    append_syslog_header(record, level);
    return record.append(text);
  }
  append_time_stamp(record);
  return record.append(level_name(level)).append(" ").append(module).append(": ").append(text).append("\n");
}

/// Where records go, and how many were lost there since the last count was written.
struct Destination {
  std::unique_ptr<LogOutput> output;
  uint64_t lost = 0;
};

Destination& destination(LogMode mode) {
  static std::array<Destination, 3> destinations{{{std::make_unique<SyslogOutput>(_PATH_LOG)},
                                                  {std::make_unique<StreamOutput>(STDOUT_FILENO)},
                                                  {std::make_unique<StreamOutput>(STDERR_FILENO)}}};
  return destinations[static_cast<size_t>(mode)];
}

std::mutex g_mutex;  // guards destinations and limiter
RecordLimiter g_limiter;
std::atomic<bool> g_untold{false};  // a count of kept-back or lost records may be due

/// Logs the count of lost records. Returns false if the log still accepts nothing.
bool tell_lost(LogMode mode) {
  Destination& to = destination(mode);
  if (to.lost == 0) return true;
  const std::string count = std::to_string(to.lost) + " records lost";
  if (to.output->put(formatted(mode, Level::WARNING, LOG.name(), count))) to.lost = 0;
  return to.lost == 0;
}

void put(LogMode mode, Level level, std::string_view module, std::string_view text) {
  (void)tell_lost(mode);
  Destination& to = destination(mode);
  if (to.output->put(formatted(mode, level, module, text))) return;
  ++to.lost;
  g_untold = true;
}

void hand_over(Level level, std::string_view module, std::string_view text) {
  if (const Sink sink = g_sink) {
    sink(level, module, text);
  } else {
    put(g_mode, level, module, text);
  }
}

void hand_over_kept_back(int64_t now_ns) {
  for (const auto& kept : g_limiter.ended(now_ns)) {
    hand_over(static_cast<Level>(kept.level), kept.module,
              std::to_string(kept.count) + " more like: " + kept.last);
  }
}

void tell_counts(int64_t now_ns) {
  const std::lock_guard lock(g_mutex);
  hand_over_kept_back(now_ns);
  const bool all_told = tell_lost(g_mode);
  g_untold = g_limiter.keeps_back() || !all_told;
}

}  // namespace

std::string_view level_name(Level level) {
  return LEVEL_NAMES[static_cast<size_t>(level)];
}

bool is_level(std::string_view name) {
  return std::ranges::find(LEVEL_NAMES, name) != LEVEL_NAMES.end();
}

std::string unknown_level(std::string_view name) {
  return text("log level '", escaped(name),
              "' does not exist; expected EMERG, ALERT, CRITICAL, ERROR, WARNING, NOTICE, INFO or DEBUG");
}

bool configure_logging(const std::string& level) {
  if (level.empty()) return true;
  const auto found = std::find(LEVEL_NAMES.begin(), LEVEL_NAMES.end(), level);
  if (found == LEVEL_NAMES.end()) {
    LOG.error(unknown_level(level));
    return false;
  }
  g_level = static_cast<Level>(found - LEVEL_NAMES.begin());
  return true;
}

void set_log_mode(LogMode mode) {
  g_mode = mode;
}

Level get_log_level() {
  return g_level.load(std::memory_order_relaxed);
}

bool enabled(Level level) {
  return level <= g_level.load(std::memory_order_relaxed);
}

void set_sink(Sink sink) {
  g_sink = sink;
}

void write(Level level, std::string_view module, std::string_view text) {
  const int saved_errno = errno;
  {
    const std::lock_guard lock(g_mutex);
    hand_over(level, module, text);
  }
  errno = saved_errno;
}

void write_limited(const Opening& opening, Level level, std::string_view module, std::string_view text) {
  const int saved_errno = errno;
  {
    const std::lock_guard lock(g_mutex);
    const int64_t now_ns = time_source().steady_ns();
    hand_over_kept_back(now_ns);
    if (g_limiter.admit({opening.file(), opening.line()}, static_cast<int>(level), module, text, now_ns)) {
      hand_over(level, module, text);
    } else {
      g_untold = true;
    }
  }
  errno = saved_errno;
}

void tell_kept_back() {
  if (g_untold.load(std::memory_order_relaxed)) tell_counts(time_source().steady_ns());
}

void tell_all_kept_back() {
  tell_counts(std::numeric_limits<int64_t>::max());
}

std::string escaped(std::string_view bytes, size_t max_bytes) {
  static constexpr char DIGITS[] = "0123456789ABCDEF";
  std::string out;
  const std::string_view shown = bytes.substr(0, max_bytes);
  out.reserve(shown.size());
  for (const char c : shown) {
    if (c >= 0x20 && c <= 0x7E) {
      out.push_back(c);
    } else {
      const auto byte = static_cast<unsigned char>(c);
      out.append({'\\', 'x', DIGITS[byte >> 4], DIGITS[byte & 0xF]});
    }
  }
  if (shown.size() < bytes.size()) out.append("...");
  return out;
}

namespace detail {

void append(std::string& out, std::string_view text) {
  out.append(text);
}

void append(std::string& out, Hex value) {
  char digits[24];
  const auto end = std::to_chars(digits, digits + sizeof digits, value.value, 16).ptr;
  const auto length = end - digits;
  if (length < value.digits) out.append(static_cast<size_t>(value.digits - length), '0');
  out.append(digits, end);
}

void append(std::string& out, double value) {
  char digits[40];
  const auto end = std::to_chars(digits, digits + sizeof digits, value, std::chars_format::general, 9).ptr;
  out.append(digits, end);
}

}  // namespace detail

}  // namespace ecu::koru::logging
