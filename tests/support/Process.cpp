#include "support/Process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <stdexcept>
#include <tuple>

#include "support/Support.h"

namespace test {

namespace {

struct Pipe {
  int read = -1;
  int write = -1;
};

Pipe make_pipe() {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("pipe2 failed");
  return {ends[0], ends[1]};
}

std::vector<std::string> environment(const std::map<std::string, std::string>& added) {
  std::vector<std::string> result;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string text = *entry;
    if (!added.contains(text.substr(0, text.find('=')))) result.push_back(text);
  }
  for (const auto& [name, value] : added) result.push_back(std::string(name).append("=").append(value));
  return result;
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
  std::vector<char*> result;
  result.reserve(texts.size() + 1);
  for (auto& text : texts) result.push_back(text.data());
  result.push_back(nullptr);
  return result;
}

/// 0 or an errno. The child starts with an empty signal mask and default handling, whatever the test set up.
int spawn(pid_t& pid, std::vector<std::string> argv, const Process::Options& options, int in, int out,
          int err) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, in, STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, out, STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, err, STDERR_FILENO);
  if (!options.cwd.empty()) posix_spawn_file_actions_addchdir_np(&actions, options.cwd.c_str());
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t set;
  sigemptyset(&set);
  posix_spawnattr_setsigmask(&attributes, &set);
  for (const int number : {SIGPIPE, SIGHUP, SIGINT, SIGTERM}) sigaddset(&set, number);
  posix_spawnattr_setsigdefault(&attributes, &set);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);

  auto env = environment(options.env);
  const int error = posix_spawnp(&pid, argv.at(0).c_str(), &actions, &attributes, pointers(argv).data(),
                                 pointers(env).data());
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  return error;
}

}  // namespace

Process::Process(const std::vector<std::string>& argv, const Options& options) {
  std::ignore = ::signal(SIGPIPE, SIG_IGN);  // write_stdin() reports a child that is gone
  const Pipe in = make_pipe();
  const Pipe out = make_pipe();
  const Pipe err = make_pipe();
  const Pipe wake = make_pipe();
  const int error = spawn(m_pid, argv, options, in.read, out.write, err.write);
  for (const int descriptor : {in.read, out.write, err.write}) close(descriptor);
  m_stdin = in.write;
  m_wake = wake.write;
  if (error != 0) {
    for (const int descriptor : {in.write, out.read, err.read, wake.read, wake.write}) close(descriptor);
    throw std::runtime_error("cannot start " + argv.at(0) + ": " + std::strerror(error));
  }
  m_reader = std::thread([this, wake, out, err] { read_output(wake.read, out.read, err.read); });
}

Process::~Process() {
  if (!reap()) {
    ::kill(m_pid, SIGKILL);
    while (waitpid(m_pid, nullptr, 0) < 0 && errno == EINTR) {
    }
  }
  close_stdin();
  close(m_wake);
  m_reader.join();
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
  if (!eventually([this] { return reap(); }, timeout_ms)) return std::nullopt;
  // A grandchild may hold the pipes open for ever: what the process itself wrote arrives at once.
  std::unique_lock lock(m_mutex);
  m_changed.wait_for(lock, std::chrono::milliseconds(500), [this] { return m_output_ended; });
  return m_status;
}

bool Process::wait_for_output(std::string_view text, int timeout_ms) {
  const auto found = [&] {
    return m_output[0].find(text) != std::string::npos || m_output[1].find(text) != std::string::npos;
  };
  std::unique_lock lock(m_mutex);
  m_changed.wait_for(lock, std::chrono::milliseconds(timeout_ms), [&] { return found() || m_output_ended; });
  return found();
}

std::string Process::captured(size_t stream) const {
  const std::lock_guard lock(m_mutex);
  return m_output[stream];
}

bool Process::reap() {
  if (m_status) return true;
  int status = 0;
  if (waitpid(m_pid, &status, WNOHANG) != m_pid) return false;
  m_status = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
  return true;
}

void Process::read_output(int wake, int out, int err) {
  pollfd watched[] = {{out, POLLIN, 0}, {err, POLLIN, 0}, {wake, POLLIN, 0}};
  char buffer[65536];
  while ((watched[0].fd >= 0 || watched[1].fd >= 0) && watched[2].revents == 0) {
    if (poll(watched, 3, -1) < 0) continue;
    for (size_t stream = 0; stream < 2; ++stream) {
      if (watched[stream].revents == 0) continue;
      const ssize_t count = ::read(watched[stream].fd, buffer, sizeof buffer);
      if (count < 0 && errno == EINTR) continue;
      const std::lock_guard lock(m_mutex);
      if (count > 0) {
        m_output[stream].append(buffer, static_cast<size_t>(count));
      } else {
        watched[stream].fd = -1;  // ignored by poll
      }
      m_changed.notify_all();
    }
  }
  for (const int descriptor : {out, err, wake}) close(descriptor);
  const std::lock_guard lock(m_mutex);
  m_output_ended = true;
  m_changed.notify_all();
}

}  // namespace test
