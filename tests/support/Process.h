#pragma once

#include <sys/types.h>

#include <condition_variable>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace test {

/// A child process with its standard streams on pipes. Its output is read all the time, so it never blocks on
/// it. Used by one thread. The child is killed and reaped at the end.
class Process {
 public:
  struct Options {
    std::string cwd;                         ///< empty: that of the test
    std::map<std::string, std::string> env;  ///< added to the test's own
  };

  /// Starts argv[0] (looked up in PATH when it holds no '/'). Throws std::runtime_error when it cannot be
  /// started.
  explicit Process(const std::vector<std::string>& argv, const Options& options);
  explicit Process(const std::vector<std::string>& argv) : Process(argv, Options{}) {}
  ~Process();
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  [[nodiscard]] pid_t pid() const { return m_pid; }
  [[nodiscard]] bool running() { return !reap(); }
  /// Sends a signal; nothing once the process has been reaped.
  void signal(int number);

  /// False when the child no longer reads. Blocks while the pipe is full.
  bool write_stdin(std::string_view text);
  void close_stdin();

  /// The exit status, or 128 + the signal that ended it; nothing when it still runs after `timeout_ms`. out()
  /// and err() are complete afterwards.
  std::optional<int> wait_for_exit(int timeout_ms);
  /// Waits until `text` stands in out() or err(); false after `timeout_ms` or when both ended without it.
  bool wait_for_output(std::string_view text, int timeout_ms);

  /// What the child wrote so far.
  [[nodiscard]] std::string out() const { return captured(0); }
  [[nodiscard]] std::string err() const { return captured(1); }

 private:
  [[nodiscard]] std::string captured(size_t stream) const;
  bool reap();
  void read_output(int wake, int out, int err);

  pid_t m_pid = -1;
  std::optional<int> m_status;
  int m_stdin = -1;
  int m_wake = -1;  // closing it ends the reader
  mutable std::mutex m_mutex;
  std::condition_variable m_changed;
  std::string m_output[2];
  bool m_output_ended = false;
  std::thread m_reader;
};

}  // namespace test
