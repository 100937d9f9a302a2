#include "scenario/World.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <sstream>
#include <utility>

#include "input/SerialInput.h"
#include "nmea/GnssUtils.h"
#include "platform/PbInternalMessageAdapter.h"
#include "platform/Topics.h"

namespace test {

using namespace ecu::koru;

namespace {

constexpr int FD = 7;

/// The device that the service opens: time passes only here and in sleeps.
class ScenarioTerminal final : public gpspub::ITerminalDevice {
 public:
  ScenarioTerminal(ScenarioTime& time, ByteSource& source, TerminalState& state)
      : m_time(time), m_source(source), m_state(state) {}

  int open(const std::string& /*path*/) override {
    m_state.opens_us.push_back(m_time.now_us());
    if (m_state.missing) {
      errno = ENOENT;
      return -1;
    }
    m_source.advance_to(m_time.now_us());
    m_source.set_open(true);
    return FD;
  }
  int close(int /*fd*/) override {
    m_source.advance_to(m_time.now_us());
    m_source.set_open(false);
    return 0;
  }
  ssize_t read(int /*fd*/, void* data, size_t max) override {
    if (m_state.gone) return 0;
    return static_cast<ssize_t>(m_source.read({static_cast<uint8_t*>(data), max}));
  }
  ssize_t write(int /*fd*/, const void* data, size_t len) override {
    m_source.advance_to(m_time.now_us());
    m_source.write({static_cast<const uint8_t*>(data), len});
    m_state.sent.push_back({m_time.now_us(), std::string(static_cast<const char*>(data), len)});
    return static_cast<ssize_t>(len);
  }
  int waitReadable(int /*fd*/, int timeout_us) override {
    ++m_state.waits;
    const int64_t end = m_time.now_us() + timeout_us;
    for (;;) {
      m_source.advance_to(m_time.now_us());
      if (m_state.gone || m_source.available() > 0) return 1;
      if (m_time.now_us() >= end) return 0;
      m_time.advance_to_us(std::clamp(m_source.next_byte_us(), m_time.now_us() + 1, end));
    }
  }
  bool isWritable(int /*fd*/) override { return true; }
  int bytesReadable(int /*fd*/) override { return static_cast<int>(m_source.available()); }
  void dropInput(int /*fd*/) override {
    std::array<uint8_t, 4096> sink{};
    while (m_source.available() > 0) m_source.read(sink);
  }
  int getAttributes(int /*fd*/, termios& /*attributes*/) override { return 0; }
  int setAttributes(int /*fd*/, const termios& attributes) override {
    static const std::map<speed_t, unsigned> SPEEDS{{B4800, 4800},   {B9600, 9600},   {B19200, 19200},
                                                    {B38400, 38400}, {B57600, 57600}, {B115200, 115200}};
    m_state.bauds.push_back(SPEEDS.at(cfgetispeed(&attributes)));
    m_source.set_host_baud(m_state.bauds.back());
    return 0;
  }

 private:
  ScenarioTime& m_time;
  ByteSource& m_source;
  TerminalState& m_state;
};

}  // namespace

void Script::advance_to(int64_t now_us) {
  while (!m_bursts.empty() && m_bursts.begin()->first <= now_us) {
    m_arrived += m_bursts.begin()->second;
    m_bursts.erase(m_bursts.begin());
  }
}

size_t Script::read(std::span<uint8_t> out) {
  const size_t count = std::min(out.size(), m_arrived.size());
  std::copy_n(m_arrived.begin(), count, out.begin());
  m_arrived.erase(0, count);
  return count;
}

void ScenarioTime::advance_to_ns(int64_t ns) {
  while (!m_agenda.empty() && START_NS + m_agenda.begin()->first * 1000 <= ns) {
    auto due = m_agenda.extract(m_agenda.begin());
    m_clock.advance(START_NS + due.key() * 1000 - steady_ns());
    due.mapped()();
  }
  m_clock.advance(ns - steady_ns());
}

void ScenarioTime::wait_ns(std::condition_variable& /*condition*/, std::unique_lock<std::mutex>& lock,
                           int64_t ns) {
  const int64_t end = steady_ns() + ns;
  lock.unlock();
  advance_to_ns(m_agenda.empty() ? end : std::min(end, START_NS + m_agenda.begin()->first * 1000));
  lock.lock();
}

ResetLine::ResetLine() {
  const auto line = m_folder.path() / "gpio197";
  std::filesystem::create_directory(line);
  mkfifo((line / "value").c_str(), 0600);
  m_fd = ::open((line / "value").c_str(), O_RDWR | O_NONBLOCK);
}

int ResetLine::pulses() {
  char chunk[64];
  for (ssize_t n = 0; (n = ::read(m_fd, chunk, sizeof chunk)) > 0;)
    m_written.append(chunk, static_cast<size_t>(n));
  const std::string pulse("0\0001\0", 4);
  const size_t count = occurrences(m_written, pulse);
  return count * pulse.size() == m_written.size() ? static_cast<int>(count) : -1;
}

World::World(ByteSource& source, const Options& options)
    : World(
          [&source](World& world) {
            return std::make_unique<gpspub::SerialInput>(
                std::make_unique<ScenarioTerminal>(world.time, source, world.terminal));
          },
          options) {}

World::World(const MakeInput& make_input, const Options& options)
    : time(options.wall_us), bus(std::make_shared<com::MemoryTransport>()) {
  set_time_source(options.real_time ? nullptr : &time);
  gpspub::GnssUtils::initDuration();
  bus->set_connected(options.connected);
  std::shared_ptr<com::ITransportClient> transport = bus;
  service = std::make_unique<gpspub::GPSDClient>(transport, "variant", options.hasgnss, options.hwversion,
                                                 options.device,
                                                 gpspub::UnitHardware{make_input(*this), resets.root()});
  service->setBaudRate(options.baud);
}  // NOLINT(clang-analyzer-cplusplus.NewDeleteLeaks): the service owns its input

World::~World() {
  service.reset();
  set_time_source(nullptr);
}

std::vector<Published> World::run(double seconds) {
  at(seconds, [this] { service->stop(); });
  service->run();
  return published();
}

std::vector<Published> World::published() const {
  std::vector<Published> published;
  for (const auto& record : bus->records()) {
    if (record.topic != topic::GNSS_DATA) continue;
    auto result = com::PbInternalMessageAdapter<pb::GnssData>(1).deserialize(record.message);
    if (!result.success) continue;
    published.push_back({(record.steady_ns - ScenarioTime::START_NS) / 1000, std::move(result.body)});
  }
  return published;
}

std::vector<std::string> World::sentOn(const std::string& topic, double from_s, double to_s) const {
  std::vector<std::string> values;
  for (const auto& record : bus->records()) {
    const double at_s = static_cast<double>(record.steady_ns - ScenarioTime::START_NS) / 1e9;
    if (record.topic == topic && at_s >= from_s && at_s < to_s) values.push_back(valueOf(record.message));
  }
  return values;
}

com::Message enveloped(const std::string& value) {
  pb::RtSignal body;
  body.set_value(value);
  return com::PbInternalMessageAdapter<pb::RtSignal>(1).serialize(body).message;
}

std::string valueOf(const com::Message& message) {
  return com::PbInternalMessageAdapter<pb::RtSignal>(1).deserialize(message).body.value();
}

std::string cadence(const std::vector<Published>& published) {
  std::ostringstream text;
  for (const auto& [at_us, data] : published) {
    text << (text.tellp() > 0 ? " " : "") << at_us / MS << ':' << data.status() << '/' << data.nmea_size();
  }
  return text.str();
}

std::string sentences(const std::string& time, const std::string& date, const std::string& kinds) {
  const std::map<std::string, std::string> bodies{
      {"RMC", "GNRMC," + time + ",A,4807.03800,N,01131.00000,E,22.400,84.40," + date + ",,,A"},
      {"GGA", "GNGGA," + time + ",4807.03800,N,01131.00000,E,1,09,0.90,545.4,M,46.9,M,,"},
      {"GSA", "GNGSA,A,3,01,02,03,04,,,,,,,,,1.94,1.18,1.54"},
      {"GST", "GNGST," + time + ",1.5,,,,2.5,3.1,4.0"}};
  std::istringstream words(kinds);
  std::string bytes;
  for (std::string kind; words >> kind;) bytes += nmea(bodies.at(kind));
  return bytes;
}

std::string epoch(int second, const std::string& kinds, int hundredths) {
  char time[16];
  static_cast<void>(std::snprintf(time, sizeof time, "1235%02d.%02d", second, hundredths));
  return sentences(time, "230326", kinds);
}

}  // namespace test
