#include "tools/tap/MetricsServer.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>

#include "platform/base/Time.h"
#include "tools/tap/Collect.h"
#include "tools/tap/HttpServer.h"
#include "tools/tap/Metrics.h"

namespace ecu::koru::tap {

namespace {

constexpr size_t THREADS = 4;
constexpr const char* CONTENT_TYPE = "text/plain; version=0.0.4; charset=utf-8";

/// Blocks all signals in the threads that are started during its life: the main thread takes them.
class SignalsBlocked {
 public:
  SignalsBlocked() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &m_before);
  }
  ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;

 private:
  sigset_t m_before{};
};

/// The library's own choice would let two programs share the port.
void set_socket_options(socket_t socket) {
  const int yes = 1;
  static_cast<void>(::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes));
}

}  // namespace

MetricsServer::MetricsServer(Options options)
    : m_options(std::move(options)), m_statistics(m_options.reference) {}

MetricsServer::~MetricsServer() {
  stop();
}

std::vector<std::string> MetricsServer::topics() const {
  auto out = m_options.topics;
  out.push_back(m_options.health_topic);
  return out;
}

bool MetricsServer::open() {
  m_server = std::make_unique<HttpServer>();
  m_server->set_socket_options(set_socket_options);
  m_server->new_task_queue = [] { return new httplib::ThreadPool(THREADS); };  // the library deletes it
  m_server->Get("/metrics", [this](const httplib::Request&, httplib::Response& response) {
    response.set_content(metrics(), CONTENT_TYPE);
  });
  if (!m_server->bind_to_port(m_options.address.host, m_options.address.port)) {
    m_problem = "cannot listen on " + m_options.address.text + ": " + std::strerror(errno);
    return false;
  }
  const SignalsBlocked blocked;
  m_thread = std::thread([this] { listen(); });
  return true;
}

void MetricsServer::listen() {
  m_server->listen_after_bind();
  if (!m_stopping) {
    m_problem = "no longer listens on " + m_options.address.text;
    finish();
  }
  m_ended = true;
}

void MetricsServer::begin(const Moment& beginning, bool live) {
  const std::lock_guard lock(m_mutex);
  m_live = live;
  m_newest_ns = beginning.boot_ns;
  m_statistics.begin(beginning);
}

void MetricsServer::take(const Arrival& arrival) {
  const std::lock_guard lock(m_mutex);
  m_newest_ns = std::max(m_newest_ns, arrival.boot_ns);
  if (arrival.topic != m_options.health_topic) {
    collect(arrival, m_statistics);
    return;
  }
  auto of_known_topic = arrival;
  of_known_topic.topic = topic::GNSS_HEALTH;  // in the table of types
  collect(of_known_topic, m_statistics);
  const Decoded decoded = decode(of_known_topic.topic, of_known_topic.payload);
  if (const auto* const health = std::get_if<pb::GnssHealth>(&decoded.body))
    m_health = {*health, arrival.boot_ns};
}

std::string MetricsServer::metrics() const {
  const std::lock_guard lock(m_mutex);
  const uint64_t now_ns = m_live ? static_cast<uint64_t>(time_source().boot_ns()) : m_newest_ns;
  std::optional<Health> health;
  if (m_health) {
    const uint64_t age_ns = now_ns - std::min(now_ns, m_health->arrival_ns);
    health = {m_health->message, static_cast<double>(age_ns) / 1e9};
  }
  std::optional<bool> connected;
  if (m_options.bus != nullptr) connected = m_options.bus->is_connected();
  return metrics_text(m_statistics.figures(now_ns), health, connected);
}

void MetricsServer::close() {
  stop();
}

void MetricsServer::stop() {
  if (!m_thread.joinable()) return;
  m_stopping = true;
  while (!m_server->is_running() && !m_ended) std::this_thread::yield();  // stop() does nothing before that
  m_server->refuse_clients();
  m_server->stop();
  m_thread.join();
}

}  // namespace ecu::koru::tap
