#include "bench/ServiceRun.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <stdexcept>

#include "bench/Stop.h"
#include "platform/base/Logging.h"
#include "platform/base/Time.h"
#include "platform/com/PbInternalMessageAdapter.h"
#include "proto/nvxproto.pb.h"

namespace bench {

namespace {

using namespace ecu::koru;
using std::chrono::milliseconds;

constexpr int PATIENCE_MS = 20'000;
constexpr milliseconds STEP{100};        // a stop is noticed within this time
constexpr milliseconds AFTER_A_FIX{20};  // by then the service waits for the next fix
constexpr uint16_t PROTOCOL_TYPE = 1;

/// Returns the time in the envelope.
int64_t stampOf(const com::Message& message) {
  pb::NVXHeader header;
  if (!header.ParseFromArray(message.payload.data(), static_cast<int>(com::envelope::HEADER_LENGTH)))
    throw std::runtime_error("a message without an envelope");
  return static_cast<int64_t>(header.timestamp_ns());
}

}  // namespace

bool isGst(std::string_view sentence) {
  return sentence.size() > 6 && sentence.substr(3, 3) == "GST";
}

class ServiceRun::Subscriber final : public com::ISubscriptionObserver {
 public:
  void message(const std::string& topic, const com::Message& message) override {
    const int64_t now_ns = time_source().steady_ns();
    if (topic != topic::GNSS_DATA) return;
    const auto position = com::PbInternalMessageAdapter<pb::GnssData>(PROTOCOL_TYPE).deserialize(message);
    const auto& sentences = position.body.nmea();
    const auto gst = std::find_if(sentences.begin(), sentences.end(), isGst);
    const std::lock_guard lock(m_mutex);
    m_publications.push_back({position.body.status(), stampOf(message)});
    if (gst == sentences.end()) return;
    m_fixes.push_back({gst->substr(0, gst->find('\r')), now_ns});
    m_arrived.notify_all();
  }

  [[nodiscard]] std::vector<Publication> publications() const {
    const std::lock_guard lock(m_mutex);
    return m_publications;
  }
  [[nodiscard]] std::vector<Sighting> fixes() const {
    const std::lock_guard lock(m_mutex);
    return m_fixes;
  }
  /// Returns true as soon as more than `before` fixes have arrived, false after one STEP.
  bool waitForMore(size_t before) {
    std::unique_lock lock(m_mutex);
    return m_arrived.wait_for(lock, STEP, [&] { return m_fixes.size() > before; });
  }

 private:
  mutable std::mutex m_mutex;
  std::condition_variable m_arrived;
  std::vector<Publication> m_publications;
  std::vector<Sighting> m_fixes;
};

ServiceRun::ServiceRun(const ServiceOptions& options) : m_subscriber(std::make_shared<Subscriber>()) {
  if (!m_broker.start()) throw std::runtime_error("the broker does not start: " + m_broker.log());
  startUnit(options.unit);
  subscribe(options.subscription);
  startService(options);
}

ServiceRun::~ServiceRun() {
  if (m_bus) m_bus->close(EXIT_FAILURE);
}

void ServiceRun::startUnit(const test::Words& options) const {
  test::Words words{test::program("ecu-sim"), "--port", std::to_string(m_broker.port())};
  words.insert(words.end(), options.begin(), options.end());
  test::Process unit(words);
  if (unit.wait_for_exit(PATIENCE_MS) != 0) throw std::runtime_error("ecu-sim: " + unit.err());
}

void ServiceRun::subscribe(const std::string& topic) {
  m_bus = tool::BusConnection::create({.program = "daemon-bench", .port = m_broker.port()});
  logging::configure_logging("ERROR");  // some measurements interrupt the connection
  if (!m_bus || !m_bus->open() || !bus().subscribe(topic, m_subscriber, 0)) {
    throw std::runtime_error("no subscription at the broker");
  }
}

void ServiceRun::startService(const ServiceOptions& options) {
  m_folder.write("satnavd.conf", "port = " + std::to_string(m_broker.port()) +
                                     "\nlogmode = STDERR\ndisable_hw_init = true\ngnss_device = " +
                                     options.device + "\n" + options.config);
  test::Words words{test::program("satnavd"), "-b", std::to_string(options.baud)};
  if (!options.notify_socket.empty())
    words.insert(words.begin(), {"env", "NOTIFY_SOCKET=" + options.notify_socket});
  m_service = std::make_unique<test::Process>(words, m_folder.path());
}

void ServiceRun::awaitFix() const {
  const size_t before = fixes().size();
  const auto end = Clock::now() + milliseconds(PATIENCE_MS);
  while (!m_subscriber->waitForMore(before)) {
    checkStop();
    if (Clock::now() < end) continue;
    throw std::runtime_error("no fix comes through; satnavd said:\n" + said());
  }
  rest(AFTER_A_FIX);
}

ProcessFigures ServiceRun::figures() const {
  if (!m_service->running()) throw std::runtime_error("satnavd has ended; it said:\n" + said());
  return readFigures(m_service->pid());
}

std::vector<Publication> ServiceRun::publications() const {
  return m_subscriber->publications();
}

std::vector<Sighting> ServiceRun::fixes() const {
  return m_subscriber->fixes();
}

}  // namespace bench
