#include "platform/Logging.h"

#include <limits.h>
#include <poll.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <mutex>

#include "platform/Time.h"

namespace ecu::koru::logging {

namespace {

constexpr std::array<std::string_view, 8> LEVEL_NAMES{"EMERG",   "ALERT",  "CRITICAL", "ERROR",
                                                      "WARNING", "NOTICE", "INFO",     "DEBUG"};

std::atomic<Level> g_level{DEFAULT_LEVEL};
std::atomic<LogMode> g_mode{LogMode::STDERR};

constexpr int STUCK_READER_MS = 100;

constexpr Module LOG = module("koru.logging");

/// "2026-11-21T10:15:30.123Z "
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

/// The whole record; what the descriptor refuses is lost. A reader that no longer reads must not stop the
/// service: the first record waits for it a little, those after it not at all until it reads again.
void write_all(int fd, std::string_view line) {
  static bool stuck = false;
  while (!line.empty()) {
    pollfd writable{fd, POLLOUT, 0};
    const int ready = poll(&writable, 1, stuck ? 0 : STUCK_READER_MS);
    if (ready < 0 && errno == EINTR) continue;
    if (ready == 0) {
      stuck = true;
      return;
    }
    stuck = false;
    const ssize_t written = ::write(fd, line.data(), std::min<size_t>(line.size(), PIPE_BUF));
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return;
    line.remove_prefix(static_cast<size_t>(written));
  }
}

void write_syslog(Level level, std::string_view text) {
  static std::once_flag opened;
  std::call_once(opened, [] { openlog("satnavd", 0, LOG_DAEMON); });
  syslog(LOG_DAEMON | static_cast<int>(level), "%.*s", static_cast<int>(text.size()), text.data());
}

}  // namespace

std::string_view level_name(Level level) {
  return LEVEL_NAMES[static_cast<size_t>(level)];
}

bool configure_logging(const std::string& level) {
  if (level.empty()) return true;
  const auto found = std::find(LEVEL_NAMES.begin(), LEVEL_NAMES.end(), level);
  if (found == LEVEL_NAMES.end()) {
    LOG.error("log level '", escaped(level),
              "' does not exist; expected EMERG, ALERT, CRITICAL, ERROR, WARNING, NOTICE, INFO or DEBUG");
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

void write(Level level, std::string_view module, std::string_view text) {
  const int saved_errno = errno;
  const LogMode mode = g_mode;
  if (mode == LogMode::SYSLOG) {
    write_syslog(level, text);
  } else {
    std::string line;
    line.reserve(64 + module.size() + text.size());
    append_time_stamp(line);
    line.append(level_name(level)).append(" ").append(module).append(": ").append(text).append("\n");
    static std::mutex whole_lines;
    const std::lock_guard lock(whole_lines);
    write_all(mode == LogMode::STDOUT ? STDOUT_FILENO : STDERR_FILENO, line);
  }
  errno = saved_errno;
}

std::string escaped(std::string_view bytes) {
  static constexpr char DIGITS[] = "0123456789ABCDEF";
  std::string out;
  out.reserve(bytes.size());
  for (const char c : bytes) {
    if (c >= 0x20 && c <= 0x7E) {
      out.push_back(c);
    } else {
      const auto byte = static_cast<unsigned char>(c);
      out.append({'\\', 'x', DIGITS[byte >> 4], DIGITS[byte & 0xF]});
    }
  }
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
