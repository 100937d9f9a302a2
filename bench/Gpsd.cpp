#include "bench/Gpsd.h"

#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <stdexcept>

namespace bench {

namespace {

constexpr int PATIENCE_MS = 20'000;

/// Returns the words before a command that give it shared memory of its own: otherwise a clock daemon of this
/// machine might find the simulated time there. Returns none if the system refuses that.
test::Words isolation() {
  test::Words words{"unshare", "--ipc"};
  if (geteuid() != 0) words.emplace_back("--user");
  test::Words trial = words;
  trial.emplace_back("true");
  return test::Process(trial).wait_for_exit(PATIENCE_MS) == 0 ? words : test::Words();
}

}  // namespace

std::string Gpsd::path() {
  for (const char* const folder : {"/usr/sbin", "/usr/local/sbin", "/usr/bin"}) {
    std::string file = std::string(folder) + "/gpsd";
    if (access(file.c_str(), X_OK) == 0) return file;
  }
  return {};
}

Gpsd::Gpsd(const std::string& device) {
  const uint16_t port = test::free_port();
  test::Words words = isolation();
  // In the foreground, without waiting for a client, reading only.
  words.insert(words.end(), {path(), "-N", "-n", "-b", "-S", std::to_string(port), device});
  m_process = std::make_unique<test::Process>(words);
  connect(port);
  m_reader = std::thread([this] { readReports(); });
}

Gpsd::~Gpsd() {
  shutdown(m_client, SHUT_RDWR);
  m_reader.join();
  close(m_client);
  // Killed, it would leave its shared memory behind.
  m_process->signal(SIGTERM);
  m_process->wait_for_exit(2000);
}

void Gpsd::connect(uint16_t port) {
  const auto connected = [&] { return (m_client = test::connect_to(port)) >= 0; };
  (void)test::eventually([&] { return connected() || !m_process->running(); }, PATIENCE_MS);
  constexpr std::string_view watch = "?WATCH={\"enable\":true,\"json\":true}\n";
  if (m_client < 0 || send(m_client, watch.data(), watch.size(), MSG_NOSIGNAL) < 0)
    throw std::runtime_error("gpsd does not start: " + said());
}

void Gpsd::readReports() {
  std::string reports;
  std::array<char, 8192> bytes{};
  for (ssize_t count = 0; (count = recv(m_client, bytes.data(), bytes.size(), 0)) > 0;) {
    reports.append(bytes.data(), static_cast<size_t>(count));
    size_t begin = 0;
    for (size_t end = 0; (end = reports.find('\n', begin)) != std::string::npos; begin = end + 1)
      take(std::string_view(reports).substr(begin, end - begin));
    reports.erase(0, begin);
  }
}

void Gpsd::take(std::string_view report) {
  const auto holds = [&](std::string_view part) { return report.find(part) != std::string_view::npos; };
  constexpr std::string_view release = "\"release\":\"";
  if (holds("\"class\":\"TPV\"") && holds("\"lat\":")) {
    ++m_fixes;
  } else if (holds("\"class\":\"VERSION\"") && holds(release)) {
    const std::string_view rest = report.substr(report.find(release) + release.size());
    const std::lock_guard lock(m_mutex);
    m_version = rest.substr(0, rest.find('"'));
  }
}

ProcessFigures Gpsd::figures() {
  if (!m_process->running()) throw std::runtime_error("gpsd has ended; it said:\n" + said());
  return readFigures(m_process->pid());
}

std::string Gpsd::version() const {
  const std::lock_guard lock(m_mutex);
  return m_version;
}

}  // namespace bench
