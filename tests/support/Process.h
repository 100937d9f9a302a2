#pragma once

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "support/Support.h"

namespace test {

using Words = std::vector<std::string>;

/// A child process that reads from a pipe and writes to files in memory, so that it never blocks on its
/// output. For one thread. The destructor kills and reaps the child.
class Process : Unique {
 public:
  /// Starts argv[0], looked up in PATH if it holds no '/', in a folder. A program that does not exist
  /// exits with 127.
  explicit Process(const Words& argv, const std::string& folder = ".") {
    std::ignore = ::signal(SIGPIPE, SIG_IGN);  // write_stdin() may find the child gone
    // The child starts with default handling, whatever the test set up.
    Words words{"env", "--default-signal=PIPE,HUP,INT,TERM", "--chdir=" + folder};
    words.insert(words.end(), argv.begin(), argv.end());
    std::vector<char*> pointers;
    for (auto& word : words) pointers.push_back(word.data());
    pointers.push_back(nullptr);

    int in[2];
    if (pipe2(in, O_CLOEXEC) != 0) throw std::runtime_error("pipe2 failed");
    m_stdin = in[1];
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in[0], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, m_out, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, m_err, STDERR_FILENO);
    const int error = posix_spawnp(&m_pid, pointers[0], &actions, nullptr, pointers.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(in[0]);
    if (error != 0) throw std::runtime_error("cannot start " + argv.at(0) + ": " + std::strerror(error));
  }
  ~Process() {
    if (!reap()) {
      ::kill(m_pid, SIGKILL);
      while (waitpid(m_pid, nullptr, 0) < 0 && errno == EINTR) continue;
    }
    close_stdin();
    for (const int file : {m_out, m_err}) close(file);
  }

  [[nodiscard]] pid_t pid() const { return m_pid; }
  [[nodiscard]] bool running() { return !reap(); }
  /// Sends a signal, unless the process has been reaped.
  void signal(int number) {
    if (!reap()) ::kill(m_pid, number);
  }

  void write_stdin(std::string_view text) const { std::ignore = ::write(m_stdin, text.data(), text.size()); }
  void close_stdin() {
    if (m_stdin >= 0) close(m_stdin);
    m_stdin = -1;
  }

  /// Returns the exit status, or 128 + the signal that ended it; empty if it still runs after `timeout_ms`.
  std::optional<int> wait_for_exit(int timeout_ms) {
    return eventually([this] { return reap(); }, timeout_ms) ? m_status : std::nullopt;
  }
  /// Waits until `text` is in out() or err(). Returns false after `timeout_ms` or if the child
  /// ended without it.
  bool wait_for_output(std::string_view text, int timeout_ms) {
    const auto found = [&] {
      return out().find(text) != std::string::npos || err().find(text) != std::string::npos;
    };
    return eventually([&] { return found() || reap(); }, timeout_ms) && found();
  }

  [[nodiscard]] std::string out() const { return content(m_out); }
  [[nodiscard]] std::string err() const { return content(m_err); }

 private:
  static std::string content(int file) {
    struct stat state {};
    fstat(file, &state);
    std::string text(static_cast<size_t>(state.st_size), '\0');
    text.resize(static_cast<size_t>(std::max<ssize_t>(pread(file, text.data(), text.size(), 0), 0)));
    return text;
  }
  bool reap() {
    if (m_status) return true;
    int status = 0;
    if (waitpid(m_pid, &status, WNOHANG) != m_pid) return false;
    m_status = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    return true;
  }

  pid_t m_pid = -1;
  std::optional<int> m_status;
  int m_stdin = -1;
  const int m_out = memfd_create("out", MFD_CLOEXEC);
  const int m_err = memfd_create("err", MFD_CLOEXEC);
};

}  // namespace test
