#pragma once

#include <sys/mman.h>
#include <sys/types.h>

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace test {

/// A child process that reads from a pipe and writes to files in memory, so it never blocks on its output.
/// Used by one thread. The child is killed and reaped at the end.
class Process {
 public:
  struct Options {
    std::string cwd;                         ///< empty: that of the test
    std::map<std::string, std::string> env;  ///< added to the test's own
  };

  /// Starts argv[0] (looked up in PATH when it holds no '/'). One that does not exist exits with 127.
  Process(const std::vector<std::string>& argv, const Options& options);
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

  /// The exit status, or 128 + the signal that ended it; nothing when it still runs after `timeout_ms`.
  std::optional<int> wait_for_exit(int timeout_ms);
  /// Waits until `text` stands in out() or err(); false after `timeout_ms` or when the child
  /// ended without it.
  bool wait_for_output(std::string_view text, int timeout_ms);

  /// What the child wrote so far.
  [[nodiscard]] std::string out() const;
  [[nodiscard]] std::string err() const;

 private:
  bool reap();

  pid_t m_pid = -1;
  std::optional<int> m_status;
  int m_stdin = -1;
  const int m_out = memfd_create("out", MFD_CLOEXEC);
  const int m_err = memfd_create("err", MFD_CLOEXEC);
};

}  // namespace test
