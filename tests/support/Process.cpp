#include "support/Process.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <tuple>

#include "support/Support.h"

namespace test {

namespace {

std::string content(int file) {
  struct stat state {};
  fstat(file, &state);
  std::string text(static_cast<size_t>(state.st_size), '\0');
  text.resize(static_cast<size_t>(std::max<ssize_t>(pread(file, text.data(), text.size(), 0), 0)));
  return text;
}

}  // namespace

Process::Process(const std::vector<std::string>& argv, const Options& options) {
  std::ignore = ::signal(SIGPIPE, SIG_IGN);  // write_stdin() reports a child that is gone
  // The child starts with default handling, whatever the test set up.
  std::vector<std::string> words{"env", "--default-signal=PIPE,HUP,INT,TERM"};
  if (!options.cwd.empty()) words.push_back("--chdir=" + options.cwd);
  for (const auto& [name, value] : options.env) words.push_back(std::string(name).append("=").append(value));
  words.insert(words.end(), argv.begin(), argv.end());
  std::vector<char*> pointers;
  pointers.reserve(words.size() + 1);
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

Process::~Process() {
  if (!reap()) {
    ::kill(m_pid, SIGKILL);
    while (waitpid(m_pid, nullptr, 0) < 0 && errno == EINTR) continue;
  }
  close_stdin();
  for (const int file : {m_out, m_err}) close(file);
}

void Process::signal(int number) {
  if (!reap()) ::kill(m_pid, number);
}

bool Process::write_stdin(std::string_view text) {
  return ::write(m_stdin, text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

void Process::close_stdin() {
  if (m_stdin >= 0) close(m_stdin);
  m_stdin = -1;
}

std::optional<int> Process::wait_for_exit(int timeout_ms) {
  return eventually([this] { return reap(); }, timeout_ms) ? m_status : std::nullopt;
}

bool Process::wait_for_output(std::string_view text, int timeout_ms) {
  const auto found = [&] {
    return out().find(text) != std::string::npos || err().find(text) != std::string::npos;
  };
  return eventually([&] { return found() || reap(); }, timeout_ms) && found();
}

std::string Process::out() const {
  return content(m_out);
}

std::string Process::err() const {
  return content(m_err);
}

bool Process::reap() {
  if (m_status) return true;
  int status = 0;
  if (waitpid(m_pid, &status, WNOHANG) != m_pid) return false;
  m_status = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
  return true;
}

}  // namespace test
