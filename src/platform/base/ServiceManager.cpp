#include "platform/base/ServiceManager.h"

#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "platform/base/Logging.h"
#include "platform/base/Numbers.h"
#include "platform/base/Time.h"

namespace ecu::koru {

namespace {

constexpr auto LOG = logging::module("koru.manager");

constexpr int64_t NS_PER_US = 1000;
constexpr int64_t NS_PER_S = 1'000'000'000;
constexpr int64_t RETRY_NS = NS_PER_S;
constexpr int64_t FEEDINGS = 3;
constexpr int64_t MAX_WATCHDOG_US = std::numeric_limits<int64_t>::max() / NS_PER_US;

std::string_view environment(const char* name) {
  const char* const value = std::getenv(name);
  return value != nullptr ? value : std::string_view();
}

void warn(const char* name, std::string_view value) {
  LOG.warning(name, " ", logging::escaped(value), " cannot be used");
}

/// Returns the number in a variable, or 0 if it is absent or not a number from 1 to `max`.
int64_t number(const char* name, int64_t max) {
  const std::string_view text = environment(name);
  const auto value = to_int_within(text, 1, max);
  if (!value && !text.empty()) warn(name, text);
  return value.value_or(0);
}

/// Returns the nanoseconds between two feedings, or 0 if this process has no watchdog.
int64_t feeding_ns() {
  const int64_t watchdog_us = number("WATCHDOG_USEC", MAX_WATCHDOG_US);
  const bool is_ours = environment("WATCHDOG_PID").empty() ||
                       number("WATCHDOG_PID", std::numeric_limits<pid_t>::max()) == getpid();
  return is_ours ? watchdog_us * NS_PER_US / FEEDINGS : 0;
}

}  // namespace

ServiceManager::~ServiceManager() {
  if (m_socket >= 0) close(m_socket);
}

std::unique_ptr<ServiceManager> ServiceManager::from_environment() {
  auto manager = std::make_unique<ServiceManager>();
  const std::string_view socket = environment("NOTIFY_SOCKET");
  if (socket.empty()) return manager;
  if (manager->open(socket)) {
    manager->m_watchdog_ns = feeding_ns();
  } else {
    warn("NOTIFY_SOCKET", socket);
  }
  return manager;
}

bool ServiceManager::open(std::string_view socket) {
  const bool is_abstract = socket.starts_with('@');
  // A path ends with a NUL, an abstract name does not.
  if ((!is_abstract && !socket.starts_with('/')) || socket.size() < 2 ||
      socket.size() + (is_abstract ? 0 : 1) > sizeof m_address.sun_path)
    return false;
  m_address.sun_family = AF_UNIX;
  std::memcpy(m_address.sun_path, socket.data(), socket.size());
  if (is_abstract) m_address.sun_path[0] = '\0';
  m_address_length =
      static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + socket.size() + (is_abstract ? 0 : 1));
  m_socket = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  return m_socket >= 0;
}

bool ServiceManager::send(std::string_view text) {
  const bool sent = sendto(m_socket, text.data(), text.size(), MSG_NOSIGNAL,
                           reinterpret_cast<const sockaddr*>(&m_address), m_address_length) >= 0;
  if (!sent) m_retry_ns = time_source().steady_ns() + RETRY_NS;
  return sent;
}

void ServiceManager::ready() {
  m_ready_due = true;
  progress();
}

void ServiceManager::progress() {
  if (m_socket < 0) return;
  const int64_t now = time_source().steady_ns();
  if (m_ready_due && send("READY=1")) m_ready_due = false;
  if (m_watchdog_ns > 0 && now >= m_next_feeding_ns && send("WATCHDOG=1"))
    m_next_feeding_ns = now + m_watchdog_ns;
  if (m_status != m_told_status && now >= m_next_status_ns && send("STATUS=" + m_status)) {
    m_told_status = m_status;
    m_next_status_ns = now + NS_PER_S;
  }
}

int64_t ServiceManager::due_ns() const {
  if (m_socket < 0) return NEVER;
  int64_t due_ns = m_ready_due ? 0 : NEVER;
  if (m_watchdog_ns > 0) due_ns = std::min(due_ns, m_next_feeding_ns);
  if (m_status != m_told_status) due_ns = std::min(due_ns, m_next_status_ns);
  return std::max(due_ns, m_retry_ns);
}

void ServiceManager::stopping() {
  if (m_socket >= 0) send("STOPPING=1");
}

}  // namespace ecu::koru
