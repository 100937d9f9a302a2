#include "bench/ReactionRun.h"

#include <signal.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <ctime>
#include <deque>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <thread>

#include "bench/CanFrames.h"
#include "bench/DeviceWatch.h"
#include "bench/NotifySocket.h"
#include "bench/ServiceRun.h"
#include "bench/SimulatedReceiver.h"
#include "bench/Stop.h"
#include "sim/gnss/Pty.h"
#include "support/Envelope.h"

namespace bench {

namespace {

using namespace ecu::koru;
using namespace std::chrono_literals;

using Act = DeviceWatch::Act;

constexpr unsigned BAUD = 38400;
constexpr auto PATIENCE = 60s;
constexpr auto LOOK = 100us;            // how often an effect is looked for
constexpr auto BETWEEN_EVENTS = 300ms;  // by then the service waits again
// Of those pauses, before an event that shows in the status: another mode may report its first position after
// 2 s, and the service reports a status at most once a second.
constexpr int TO_NEXT_STATUS = 11;
constexpr std::string_view OFF = "STATUS=GNSS is switched off";
constexpr std::string_view NO_BROKER = "STATUS=no broker";
// A record of each mode, when it begins.
constexpr std::array<std::string_view, 2> MODE_RECORDS{"connectSerial to",
                                                       "satnavd gets gnss data from ican"};

class ReactionRun {
 public:
  explicit ReactionRun(const ReactionState& state)
      : m_state(state),
        m_service({.device = makeDevice(),
                   .baud = BAUD,
                   .unit = state.unit,
                   .config = state.config,
                   .notify_socket = m_manager.name()}) {}

  /// Returns as soon as the service is in the state.
  void enter();
  /// Returns the milliseconds from the event to its effect.
  [[nodiscard]] double measure(Event event);

 private:
  [[nodiscard]] std::string makeDevice();
  void pause(int times) const;
  void forgetThePast();
  /// Returns when the event began.
  Clock::time_point trigger(Event event);
  void send(const std::string& topic, char value) const;
  Clock::time_point bringBrokerBack();
  void await(const std::function<bool()>& effect) const;
  [[nodiscard]] bool hasReacted(Event event);
  [[nodiscard]] bool isReported(const std::function<bool(std::string_view)>& matches) const;
  [[nodiscard]] bool isReported(std::string_view report) const;
  [[nodiscard]] size_t count(Act act) const;
  [[nodiscard]] size_t modesBegun() const;

  const ReactionState& m_state;
  const NotifySocket m_manager;
  std::optional<sim::Pty> m_line;
  std::optional<SimulatedReceiver> m_receiver;
  std::optional<DeviceWatch> m_watch;
  ServiceRun m_service;
  size_t m_modes_begun = 0;
};

std::string ReactionRun::makeDevice() {
  if (m_state.device == Device::NONE) return "/dev/no-receiver";
  if (m_state.device == Device::SILENT) {
    m_line.emplace(BAUD);
  } else {
    m_receiver.emplace(test::Words{"--antenna-supply", m_state.device == Device::ANTENNA_OFF ? "off" : "on"});
  }
  std::string device = m_line ? m_line->path() : m_receiver->device();
  m_watch.emplace(device);
  return device;
}

void ReactionRun::enter() {
  for (const auto end = Clock::now() + PATIENCE; !isReported(m_state.begins); pause(1)) {
    if (Clock::now() >= end) throw std::runtime_error("satnavd does not get there: " + m_service.said());
  }
  if (m_state.is_silent) (void)measure(Event::SILENCE_ON);
}

double ReactionRun::measure(Event event) {
  const bool is_status = event == Event::BROKER_BACK || (event == Event::GNSS_OFF && !m_watch);
  pause(is_status ? TO_NEXT_STATUS : 1);
  forgetThePast();
  const auto start = trigger(event);
  await([&] { return hasReacted(event); });
  return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

void ReactionRun::pause(int times) const {
  for (int i = 0; i < times; ++i) {
    // After the broker's return the subscriber's connection takes its time.
    if (m_state.has_frames && m_service.bus().is_connected())
      sendCanFrames(m_service.bus(), std::time(nullptr));
    rest(BETWEEN_EVENTS);
  }
}

void ReactionRun::forgetThePast() {
  (void)m_manager.take();
  if (m_watch) (void)m_watch->take();
  m_modes_begun = modesBegun();
}

Clock::time_point ReactionRun::trigger(Event event) {
  if (event == Event::BROKER_BACK) return bringBrokerBack();
  const auto start = Clock::now();
  if (event == Event::STOP) m_service.process().signal(SIGTERM);
  if (event == Event::SILENCE_ON) send(topic::BLACKOUT_MODE, 1);
  if (event == Event::SILENCE_OFF) send(topic::BLACKOUT_MODE, 0);
  if (event == Event::CONSTELLATION) send(topic::PARAMETER_GALILEO, 1);
  if (event == Event::GNSS_OFF) send(topic::PARAMETER_GNSS_ON, 0);
  if (event == Event::GNSS_ON) send(topic::PARAMETER_GNSS_ON, 1);
  return start;
}

void ReactionRun::send(const std::string& topic, char value) const {
  if (m_service.bus().publish(topic, test::envelopedSignal({value})) < 0)
    throw std::runtime_error("cannot send " + topic);
}

/// The service tries to connect at times of its own, so the event begins when the broker accepts it.
Clock::time_point ReactionRun::bringBrokerBack() {
  test::Broker& broker = m_service.broker();
  broker.kill();
  await([&] { return isReported(NO_BROKER); });
  if (!broker.start()) throw std::runtime_error("the broker does not start again");
  await([&] { return broker.log().find("Sending CONNACK to satnavd ") != std::string::npos; });
  return Clock::now();
}

void ReactionRun::await(const std::function<bool()>& effect) const {
  for (const auto end = Clock::now() + PATIENCE; !effect(); std::this_thread::sleep_for(LOOK)) {
    checkStop();
    if (Clock::now() >= end) throw std::runtime_error("no reaction; satnavd said:\n" + m_service.said());
  }
}

bool ReactionRun::hasReacted(Event event) {
  switch (event) {
    case Event::STOP:
      return isReported("STOPPING=1");
    case Event::SILENCE_ON:
    case Event::CONSTELLATION:
      return count(Act::WRITTEN) > 0;
    case Event::SILENCE_OFF:
      return count(Act::CLOSED) > 0;
    case Event::GNSS_OFF:
      return m_watch ? count(Act::CLOSED) > 0 : isReported(OFF);
    case Event::GNSS_ON:
      return m_watch ? count(Act::OPENED) > 0 : modesBegun() > m_modes_begun;
    case Event::BROKER_BACK:
      return isReported(
          [](auto report) { return report.starts_with("STATUS=") && !report.starts_with(NO_BROKER); });
  }
  return false;
}

bool ReactionRun::isReported(const std::function<bool(std::string_view)>& matches) const {
  return std::ranges::any_of(m_manager.take(), matches);
}

bool ReactionRun::isReported(std::string_view report) const {
  return isReported([&](std::string_view each) { return each.starts_with(report); });
}

size_t ReactionRun::count(Act act) const {
  if (!m_watch) return 0;
  return static_cast<size_t>(
      std::ranges::count_if(m_watch->take(), [&](const auto& sight) { return sight.act == act; }));
}

size_t ReactionRun::modesBegun() const {
  size_t count = 0;
  const std::string said = m_service.said();
  for (const auto record : MODE_RECORDS) count += test::occurrences(said, record);
  return count;
}

}  // namespace

Reactions measureReactions(const ReactionState& state, size_t runs) {
  std::deque<ReactionRun> started;
  for (size_t i = 0; i < runs; ++i) started.emplace_back(state);
  Reactions reactions;
  for (auto& run : started) {
    run.enter();
    for (const Event event : state.events) reactions[event].push_back(run.measure(event));
  }
  return reactions;
}

}  // namespace bench
