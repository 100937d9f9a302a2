#include "bench/DaemonRun.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <fstream>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

#include "platform/base/Time.h"
#include "platform/com/PbInternalMessageAdapter.h"
#include "platform/com/Topics.h"
#include "proto/nvxproto.pb.h"
#include "support/Broker.h"
#include "tools/common/BusConnection.h"

namespace bench {

namespace {

using namespace ecu::koru;
using std::chrono::milliseconds;

constexpr int PATIENCE_MS = 20'000;
constexpr milliseconds STEP{100};        // a stop is noticed within this time
constexpr milliseconds AFTER_A_FIX{20};  // by then the service waits for the next fix
constexpr int FIXES_TO_WARM_UP = 5;
constexpr uint16_t PROTOCOL_TYPE = 1;

/// A GST sentence without its CR LF, unique by its time, and when it was sent or received by CLOCK_MONOTONIC.
struct Sighting {
  std::string gst;
  int64_t at_ns;
};

bool isGst(std::string_view sentence) {
  return sentence.size() > 6 && sentence.substr(3, 3) == "GST";
}

class Subscriber final : public com::ISubscriptionObserver {
 public:
  void message(const std::string&, const com::Message& message) override {
    const int64_t now_ns = time_source().steady_ns();
    const auto fix = com::PbInternalMessageAdapter<pb::GnssData>(PROTOCOL_TYPE).deserialize(message);
    const auto& sentences = fix.body.nmea();
    const auto gst = std::find_if(sentences.begin(), sentences.end(), isGst);
    if (gst == sentences.end()) return;
    const std::lock_guard lock(m_mutex);
    m_seen.push_back({gst->substr(0, gst->find('\r')), now_ns});
    m_arrived.notify_all();
  }

  [[nodiscard]] size_t count() const {
    const std::lock_guard lock(m_mutex);
    return m_seen.size();
  }
  /// Returns true as soon as more than `before` fixes have arrived, false after one STEP.
  bool waitForMore(size_t before) {
    std::unique_lock lock(m_mutex);
    return m_arrived.wait_for(lock, STEP, [&] { return m_seen.size() > before; });
  }
  [[nodiscard]] std::vector<Sighting> seen() const {
    const std::lock_guard lock(m_mutex);
    return m_seen;
  }

 private:
  mutable std::mutex m_mutex;
  std::condition_variable m_arrived;
  std::vector<Sighting> m_seen;
};

/// Everything that a measurement starts, in this order. It ends in reverse order.
class Setup {
 public:
  Setup(const DaemonRate& rate, const std::atomic<bool>& stop);
  ~Setup() {
    if (m_bus) m_bus->close(EXIT_FAILURE);
  }
  Setup(const Setup&) = delete;
  Setup& operator=(const Setup&) = delete;

  struct Point {
    size_t fixes;
    ProcessFigures figures;
  };
  /// Waits for the next fix. Returns the number of fixes and the service's figures after it.
  Point nextPoint();
  void rest(milliseconds time) const;

  [[nodiscard]] std::vector<Sighting> arrivals() const { return m_subscriber->seen(); }
  [[nodiscard]] std::vector<Sighting> sent() const;

 private:
  void checkStop() const {
    if (m_stop) throw std::runtime_error("stopped by a signal");
  }
  void startUnit();
  void startReceiver(const DaemonRate& rate);
  void subscribe();
  void startService(const DaemonRate& rate);

  const std::atomic<bool>& m_stop;
  test::TempDir m_folder;
  test::Broker m_broker;
  std::shared_ptr<Subscriber> m_subscriber = std::make_shared<Subscriber>();
  std::unique_ptr<tool::BusConnection> m_bus;
  std::unique_ptr<test::Process> m_receiver;
  std::unique_ptr<test::Process> m_service;
};

Setup::Setup(const DaemonRate& rate, const std::atomic<bool>& stop) : m_stop(stop) {
  if (!m_broker.start()) throw std::runtime_error("the broker does not start: " + m_broker.log());
  startUnit();
  startReceiver(rate);
  subscribe();
  startService(rate);
}

void Setup::startUnit() {
  test::Process unit({test::program("ecu-sim"), "--port", std::to_string(m_broker.port())});
  if (unit.wait_for_exit(PATIENCE_MS) != 0) throw std::runtime_error("ecu-sim: " + unit.err());
}

void Setup::startReceiver(const DaemonRate& rate) {
  m_receiver = std::make_unique<test::Process>(std::vector<std::string>{
      test::program("gnss-sim"), "--rate", std::to_string(rate.hz), "--baud", std::to_string(rate.baud),
      "--gsv", "off", "--link", m_folder / "receiver", "--sentence-trace", m_folder / "trace"});
  if (!m_receiver->wait_for_output("\n", PATIENCE_MS))
    throw std::runtime_error("gnss-sim: " + m_receiver->err());
}

void Setup::subscribe() {
  m_bus = tool::BusConnection::create({.program = "daemon-bench", .port = m_broker.port()});
  if (!m_bus || !m_bus->open() || !m_bus->transport().subscribe(topic::GNSS_DATA, m_subscriber, 0)) {
    throw std::runtime_error("no subscription at the broker");
  }
}

void Setup::startService(const DaemonRate& rate) {
  m_folder.write("satnavd.conf", "port = " + std::to_string(m_broker.port()) +
                                     "\nlogmode = STDERR\ndisable_hw_init = true\ngnss_device = " +
                                     (m_folder / "receiver") + "\n");
  m_service = std::make_unique<test::Process>(
      std::vector<std::string>{test::program("satnavd"), "-b", std::to_string(rate.baud)}, m_folder.path());
}

Setup::Point Setup::nextPoint() {
  const size_t before = m_subscriber->count();
  const auto end = std::chrono::steady_clock::now() + milliseconds(PATIENCE_MS);
  while (!m_subscriber->waitForMore(before)) {
    checkStop();
    if (std::chrono::steady_clock::now() < end) continue;
    throw std::runtime_error("no fix comes through; satnavd said:\n" + m_service->out() + m_service->err());
  }
  rest(AFTER_A_FIX);
  return {m_subscriber->count(), readFigures(m_service->pid())};
}

void Setup::rest(milliseconds time) const {
  for (; time.count() > 0; time -= STEP) {
    checkStop();
    std::this_thread::sleep_for(std::min(time, STEP));
  }
}

std::vector<Sighting> Setup::sent() const {
  std::vector<Sighting> result;
  std::ifstream trace(m_folder / "trace");
  Sighting line;
  while (trace >> line.at_ns >> line.gst) {
    if (isGst(line.gst)) result.push_back(line);
  }
  return result;
}

/// Sets the delays of the fixes in [from, to), and how many the receiver sent in that time.
void compare(const std::vector<Sighting>& sent, const std::vector<Sighting>& arrivals, size_t from, size_t to,
             DaemonResult& result) {
  const auto find = [&](const Sighting& arrival) {
    const auto found =
        std::find_if(sent.begin(), sent.end(), [&](const auto& each) { return each.gst == arrival.gst; });
    if (found == sent.end()) throw std::runtime_error("a fix that the receiver never sent: " + arrival.gst);
    return found;
  };
  for (size_t i = from; i < to; ++i) {
    result.delays_ms.push_back(static_cast<double>(arrivals[i].at_ns - find(arrivals[i])->at_ns) / 1e6);
  }
  std::sort(result.delays_ms.begin(), result.delays_ms.end());
  result.driven = static_cast<size_t>(find(arrivals[to - 1]) - find(arrivals[from - 1]));
}

}  // namespace

DaemonResult measureDaemon(const DaemonRate& rate, int seconds, const std::atomic<bool>& stop) {
  Setup setup(rate, stop);
  Setup::Point first = setup.nextPoint();
  while (first.fixes < FIXES_TO_WARM_UP) first = setup.nextPoint();
  setup.rest(std::chrono::seconds(seconds));
  const Setup::Point last = setup.nextPoint();

  DaemonResult result;
  compare(setup.sent(), setup.arrivals(), first.fixes, last.fixes, result);
  const auto fixes = static_cast<double>(last.fixes - first.fixes);
  result.processor_us =
      static_cast<double>(last.figures.processor_ns - first.figures.processor_ns) / 1000 / fixes;
  result.wake_ups = static_cast<double>(last.figures.wake_ups - first.figures.wake_ups) / fixes;
  result.end = last.figures;
  return result;
}

}  // namespace bench
