#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "core/GPSDClient.h"
#include "input/SerialInput.h"
#include "platform/base/Time.h"
#include "platform/com/MemoryTransport.h"
#include "platform/com/Topics.h"
#include "sim/gnss/Receiver.h"
#include "sim/replay/AgendaTime.h"
#include "sim/replay/VirtualTerminal.h"
#include "support/Envelope.h"
#include "support/Frames.h"
#include "support/Support.h"
#include "wire/Stopwatch.h"

/// The whole service with a fake terminal and a bus in memory, in virtual time.
namespace test {

inline constexpr int64_t MS = 1000;  // us
inline constexpr int64_t S = 1000 * MS;

using ByteSource = ecu::koru::sim::LinkEnd;

/// Holds the bytes that have arrived.
class Arrivals : public ByteSource {
 public:
  [[nodiscard]] size_t available() const override { return m_arrived.size(); }
  size_t read(std::span<uint8_t> out) override {
    const size_t count = std::min(out.size(), m_arrived.size());
    std::copy_n(m_arrived.begin(), count, out.begin());
    m_arrived.erase(0, count);
    return count;
  }

 protected:
  std::string m_arrived;
};

/// Bytes that arrive at given times, each burst at once.
class Script : public Arrivals {
 public:
  void add(int64_t at_us, std::string bytes) { m_bursts.emplace(at_us, std::move(bytes)); }
  void advance_to(int64_t now_us) override {
    while (!m_bursts.empty() && m_bursts.begin()->first <= now_us) {
      m_arrived += m_bursts.begin()->second;
      m_bursts.erase(m_bursts.begin());
    }
  }
  [[nodiscard]] int64_t next_byte_us() const override {
    return m_bursts.empty() ? INT64_MAX : m_bursts.begin()->first;
  }

 private:
  std::multimap<int64_t, std::string> m_bursts;
};

class SimulatedReceiver final : public ByteSource {
 public:
  explicit SimulatedReceiver(const ecu::koru::sim::ReceiverOptions& options) : receiver(options) {}
  void advance_to(int64_t now_us) override { receiver.advance_to(now_us); }
  [[nodiscard]] int64_t next_byte_us() const override { return receiver.next_byte_us(); }
  [[nodiscard]] size_t available() const override { return receiver.available(); }
  size_t read(std::span<uint8_t> out) override { return receiver.read(out); }
  void write(std::span<const uint8_t> bytes) override { receiver.write(bytes); }
  void set_host_baud(unsigned baud) override { receiver.set_host_baud(baud); }
  void set_open(bool open) override { receiver.set_open(open); }

  ecu::koru::sim::Receiver receiver;
};

/// Times in us count from the start of the scenario.
class ScenarioTime final : public ecu::koru::sim::AgendaTime {
 public:
  static constexpr int64_t START_NS = 1'000'000'000'000;
  explicit ScenarioTime(int64_t wall_us) : AgendaTime(START_NS, wall_us) {}
};

struct Sent {
  int64_t at_us;
  std::string bytes;
};

struct TerminalState {
  bool missing = false;  ///< open() fails
  bool gone = false;     ///< the open device hangs up: reads return 0
  std::vector<int64_t> opens_us;
  std::vector<Sent> sent;
  std::vector<unsigned> bauds;
  long waits = 0;
};

/// Hands everything on between terminal and source, notes what the service does, and is missing or gone on
/// request.
class WatchedSource final : public ByteSource {
 public:
  WatchedSource(ScenarioTime& time, ByteSource& source, TerminalState& state)
      : m_time(time), m_source(source), m_state(state) {}

  void advance_to(int64_t now_us) override { m_source.advance_to(now_us); }
  [[nodiscard]] int64_t next_byte_us() const override { return m_source.next_byte_us(); }
  [[nodiscard]] size_t available() const override { return m_source.available(); }
  size_t read(std::span<uint8_t> out) override { return m_source.read(out); }
  void write(std::span<const uint8_t> bytes) override {
    m_source.write(bytes);
    m_state.sent.push_back({m_time.now_us(), std::string(bytes.begin(), bytes.end())});
  }
  void set_host_baud(unsigned baud) override {
    m_state.bauds.push_back(baud);
    m_source.set_host_baud(baud);
  }
  [[nodiscard]] int open_error() override {
    m_state.opens_us.push_back(m_time.now_us());
    return m_state.missing ? ENOENT : 0;
  }
  void set_open(bool open) override { m_source.set_open(open); }
  [[nodiscard]] bool is_gone() const override { return m_state.gone; }
  void wait_begins() override { ++m_state.waits; }

 private:
  ScenarioTime& m_time;
  ByteSource& m_source;
  TerminalState& m_state;
};

/// The receiver's reset line, as sysfs shows it.
class ResetLine : Unique {
 public:
  ResetLine() {
    const auto line = m_folder.path() / "gpio197";
    std::filesystem::create_directory(line);
    mkfifo((line / "value").c_str(), 0600);
    m_fd = ::open((line / "value").c_str(), O_RDWR | O_NONBLOCK);
  }
  ~ResetLine() { close(m_fd); }
  [[nodiscard]] std::string root() const { return m_folder.path().string(); }
  /// Returns the number of pulses, "0" and "1" each with a NUL, since the start; -1 after other bytes.
  [[nodiscard]] int pulses() {
    for (char byte = 0; ::read(m_fd, &byte, 1) == 1;) m_written += byte;
    const std::string pulse("0\0001\0", 4);
    const size_t count = occurrences(m_written, pulse);
    return count * pulse.size() == m_written.size() ? static_cast<int>(count) : -1;
  }

 private:
  TempDir m_folder;
  int m_fd;  // of the FIFO that stands in for the value file
  std::string m_written;
};

struct Published {
  int64_t at_us;
  ecu::koru::pb::GnssData data;
};

class World {
 public:
  struct Options {
    std::string hasgnss = "true";
    std::string hwversion = "qrx";
    unsigned baud = 38400;
    std::string device = "/dev/ttyFP3";
    int64_t wall_us = 1'400'000'000'000'000;  ///< the system clock at the start, 2014
    bool real_time = false;                   ///< uses the operating system's clocks; `time` stands still
    bool connected = true;                    ///< the broker is there when the service is created
    bool hardware_init = true;                ///< the service configures the receiver
  };
  using MakeInput = std::function<std::unique_ptr<ecu::koru::gpspub::IGnssInput>(World&)>;
  World(const MakeInput& make_input, const Options& options)
      : time(options.wall_us), bus(std::make_shared<ecu::koru::com::MemoryTransport>()) {
    ecu::koru::set_time_source(options.real_time ? nullptr : &time);
    ecu::koru::gpspub::GnssUtils::initDuration();
    bus->set_connected(options.connected);
    std::shared_ptr<ecu::koru::com::ITransportClient> transport = bus;
    service = std::make_unique<ecu::koru::gpspub::GPSDClient>(
        transport, "variant", options.hasgnss, options.hwversion, options.device,
        ecu::koru::gpspub::UnitHardware{make_input(*this), resets.root()});
    service->setBaudRate(options.baud);
    if (!options.hardware_init) service->disableHardwareInit();
  }  // NOLINT(clang-analyzer-cplusplus.NewDeleteLeaks): the service owns its input
  World(ByteSource& source, const Options& options)
      : World(
            [&source](World& world) {
              world.m_watched = std::make_unique<WatchedSource>(world.time, source, world.terminal);
              return std::make_unique<ecu::koru::gpspub::SerialInput>(
                  std::make_unique<ecu::koru::sim::VirtualTerminal>(world.time, *world.m_watched));
            },
            options) {}
  explicit World(ByteSource& source) : World(source, Options{}) {}
  ~World() {
    service.reset();
    ecu::koru::set_time_source(nullptr);
  }

  /// Runs the service for that time and returns what it published. Call it only once.
  std::vector<Published> run(double seconds) {
    at(seconds, [this] { service->stop(); });
    service->run();
    return published();
  }
  /// Returns everything published so far, oldest first. In real time, `at_us` counts from an unknown point.
  [[nodiscard]] std::vector<Published> published() const {
    std::vector<Published> published;
    for (const auto& record : bus->records()) {
      if (record.topic != ecu::koru::topic::GNSS_DATA) continue;
      auto result =
          ecu::koru::com::PbInternalMessageAdapter<ecu::koru::pb::GnssData>(1).deserialize(record.message);
      if (!result.success) continue;
      published.push_back({(record.steady_ns - ScenarioTime::START_NS) / 1000, std::move(result.body)});
    }
    return published;
  }
  void at(double seconds, std::function<void()> action) {
    time.at(static_cast<int64_t>(seconds * S), std::move(action));
  }
  void inject(const std::string& topic, const std::string& value) const {
    bus->inject(topic, envelopedSignal(value));
  }
  void injectAt(double seconds, const std::string& topic, const std::string& value) {
    at(seconds, [=, this] { inject(topic, value); });
  }
  /// Returns the signals that the service sent on a topic in that time, oldest first.
  [[nodiscard]] std::vector<std::string> sentOn(const std::string& topic, double from_s = 0,
                                                double to_s = 1e6) const {
    std::vector<std::string> values;
    for (const auto& record : bus->records()) {
      const double at_s = static_cast<double>(record.steady_ns - ScenarioTime::START_NS) / 1e9;
      if (record.topic == topic && at_s >= from_s && at_s < to_s)
        values.push_back(bodyOf(record.message).value());
    }
    return values;
  }

  ScenarioTime time;
  TerminalState terminal;
  ResetLine resets;
  std::shared_ptr<ecu::koru::com::MemoryTransport> bus;
  std::unique_ptr<ecu::koru::gpspub::GPSDClient> service;

 private:
  std::unique_ptr<WatchedSource> m_watched;  // null: the input has no terminal
};

/// Returns "ms:status/sentences" of each, separated by blanks.
inline std::string cadence(const std::vector<Published>& published) {
  std::ostringstream text;
  for (const auto& [at_us, data] : published) {
    text << (text.tellp() > 0 ? " " : "") << at_us / MS << ':' << data.status() << '/' << data.nmea_size();
  }
  return text.str();
}

/// Returns the sentences of an epoch at "hhmmss.ss" and "ddmmyy"; `kinds` are like "RMC GGA GSA GSA GST".
inline std::string sentences(const std::string& time, const std::string& date, const std::string& kinds) {
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
/// Returns those of 23 March 2026 12:35:SS.hh.
inline std::string epoch(int second, const std::string& kinds = "RMC GGA GSA GSA GST", int hundredths = 0) {
  char time[16];
  static_cast<void>(std::snprintf(time, sizeof time, "1235%02d.%02d", second, hundredths));
  return sentences(time, "230326", kinds);
}

}  // namespace test
