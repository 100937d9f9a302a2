#include "support/Process.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <tuple>

#include "support/Support.h"

namespace test {

namespace {

/// 0 or an errno. The child starts with an empty signal mask and default handling, whatever the test set up.
int spawn(pid_t& pid, std::vector<std::string> argv, int in, int out, int err) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, in, STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, out, STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, err, STDERR_FILENO);
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t set;
  sigemptyset(&set);
  posix_spawnattr_setsigmask(&attributes, &set);
  for (const int number : {SIGPIPE, SIGHUP, SIGINT, SIGTERM}) sigaddset(&set, number);
  posix_spawnattr_setsigdefault(&attributes, &set);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);

  std::vector<char*> words;
  for (auto& word : argv) words.push_back(word.data());
  words.push_back(nullptr);
  const int error = posix_spawnp(&pid, words[0], &actions, &attributes, words.data(), environ);
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  return error;
}

std::string content(int file) {
  struct stat state {};
  fstat(file, &state);
  std::string text(static_cast<size_t>(state.st_size), '\0');
  text.resize(static_cast<size_t>(std::max<ssize_t>(pread(file, text.data(), text.size(), 0), 0)));
  return text;
}

}  // namespace

Process::Process(std::vector<std::string> argv, const Options& options) {
  std::ignore = ::signal(SIGPIPE, SIG_IGN);  // write_stdin() reports a child that is gone
  std::vector<std::string> launcher;
  if (!options.cwd.empty() || !options.env.empty()) launcher.emplace_back("env");
  if (!options.cwd.empty()) launcher.push_back("--chdir=" + options.cwd);
  for (const auto& [name, value] : options.env)
    launcher.push_back(std::string(name).append("=").append(value));
  argv.insert(argv.begin(), launcher.begin(), launcher.end());
  int in[2];
  if (pipe2(in, O_CLOEXEC) != 0) throw std::runtime_error("pipe2 failed");
  m_stdin = in[1];
  const int error = spawn(m_pid, argv, in[0], m_out, m_err);
  close(in[0]);
  if (error != 0) throw std::runtime_error("cannot start " + argv[0] + ": " + std::strerror(error));
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
  while (!text.empty() && m_stdin >= 0) {
    const ssize_t written = ::write(m_stdin, text.data(), text.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    text.remove_prefix(static_cast<size_t>(written));
  }
  return text.empty();
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
