#pragma once

#include <unistd.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "core/GPSDClient.h"
#include "input/TerminalDevice.h"
#include "platform/MemoryTransport.h"
#include "platform/Time.h"
#include "proto/nvxproto.pb.h"
#include "sim/gnss/Receiver.h"
#include "support/Frames.h"
#include "support/Support.h"

/// The whole service over a fake terminal and a bus in memory, in virtual time.
namespace test {

inline constexpr int64_t MS = 1000;  // us
inline constexpr int64_t S = 1000 * MS;

/// The receiver's end of the terminal. Times are microseconds since the scenario began.
class ByteSource {
 public:
  virtual ~ByteSource() = default;
  virtual void advance_to(int64_t now_us) = 0;
  [[nodiscard]] virtual int64_t next_byte_us() const = 0;
  [[nodiscard]] virtual size_t available() const = 0;
  virtual size_t read(std::span<uint8_t> out) = 0;
  /// What the service sends.
  virtual void write(std::span<const uint8_t> /*bytes*/) {}
  virtual void set_host_baud(unsigned /*baud*/) {}
  virtual void set_open(bool /*open*/) {}
};

/// Bytes that arrive at given times, each burst at once.
class Script : public ByteSource {
 public:
  void add(int64_t at_us, std::string bytes) { m_bursts.emplace(at_us, std::move(bytes)); }
  void advance_to(int64_t now_us) override;
  [[nodiscard]] int64_t next_byte_us() const override {
    return m_bursts.empty() ? INT64_MAX : m_bursts.begin()->first;
  }
  [[nodiscard]] size_t available() const override { return m_arrived.size(); }
  size_t read(std::span<uint8_t> out) override;

 private:
  std::string m_arrived;
  std::multimap<int64_t, std::string> m_bursts;
};

/// The simulated receiver as a source.
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

/// Virtual time with an agenda: whatever moves the clock carries out what has become due on the way.
class ScenarioTime final : public ecu::koru::ITimeSource {
 public:
  static constexpr int64_t START_NS = 1'000'000'000'000;
  explicit ScenarioTime(int64_t wall_us) : m_clock(START_NS, wall_us) {}
  [[nodiscard]] int64_t steady_ns() const override { return m_clock.steady_ns(); }
  [[nodiscard]] int64_t boot_ns() const override { return m_clock.boot_ns() + boot_offset_ns; }
  void sleep_ns(int64_t ns) override { advance_to_ns(steady_ns() + ns); }
  /// Ends at the next point of the agenda: it may have been what was waited for.
  void wait_ns(std::condition_variable& condition, std::unique_lock<std::mutex>& lock, int64_t ns) override;
  [[nodiscard]] timeval wall() const override { return m_clock.wall(); }
  [[nodiscard]] bool set_wall(const timeval& now) override { return m_clock.set_wall(now); }

  [[nodiscard]] int64_t now_us() const { return (steady_ns() - START_NS) / 1000; }
  void at(int64_t us, std::function<void()> action) { m_agenda.emplace(us, std::move(action)); }
  /// Never past the next point of the agenda without carrying it out.
  void advance_to_us(int64_t us) { advance_to_ns(START_NS + us * 1000); }
  [[nodiscard]] ecu::koru::VirtualTime& clock() { return m_clock; }

  int64_t boot_offset_ns = 0;  ///< the time since boot is so much more than the steady clock

 private:
  void advance_to_ns(int64_t ns);

  ecu::koru::VirtualTime m_clock;
  std::multimap<int64_t, std::function<void()>> m_agenda;
};

/// What the service sent at a time.
struct Sent {
  int64_t at_us;
  std::string bytes;
};

struct TerminalState {
  bool missing = false;  ///< open() fails
  bool gone = false;     ///< the open device hangs up: reads give 0
  std::vector<int64_t> opens_us;
  std::vector<Sent> sent;
  std::vector<unsigned> bauds;
  long waits = 0;
};

/// The processor line of the receiver's reset, as sysfs shows it.
class ResetLine {
 public:
  ResetLine();
  ~ResetLine() { close(m_fd); }
  ResetLine(const ResetLine&) = delete;
  ResetLine& operator=(const ResetLine&) = delete;
  [[nodiscard]] std::string root() const { return m_folder.path().string(); }
  /// Falling and rising edges since the start: "0" and "1", each written with its NUL.
  [[nodiscard]] int pulses();

 private:
  TempDir m_folder;
  int m_fd;  // of the FIFO that stands in for the value file
  std::string m_written;
};

/// One fix as a subscriber gets it.
struct Published {
  int64_t at_us;
  ecu::koru::pb::GnssData data;
};

/// A signal's bytes as they travel, and back.
[[nodiscard]] ecu::koru::com::Message enveloped(const std::string& value);
[[nodiscard]] std::string valueOf(const ecu::koru::com::Message& message);

class World {
 public:
  struct Options {
    std::string hasgnss = "true";
    std::string hwversion = "qrx";
    unsigned baud = 38400;
    std::string device = "/dev/ttyFP3";
    int64_t wall_us = 1'400'000'000'000'000;  ///< the system clock at the start: 2014
    bool real_time = false;                   ///< the operating system's clocks: `time` stands still
    bool connected = true;                    ///< whether the broker is there when the service is made
  };
  /// Makes the receiver's input on the world's time.
  using MakeInput = std::function<std::unique_ptr<ecu::koru::gpspub::IGnssInput>(World&)>;
  World(const MakeInput& make_input, const Options& options);
  World(ByteSource& source, const Options& options);
  explicit World(ByteSource& source) : World(source, Options{}) {}
  ~World();

  /// Runs the service for so long and returns what it published. Once.
  std::vector<Published> run(double seconds);
  /// All that the service published so far, oldest first. In real time `at_us` counts from an unknown point.
  [[nodiscard]] std::vector<Published> published() const;
  void at(double seconds, std::function<void()> action) {
    time.at(static_cast<int64_t>(seconds * S), std::move(action));
  }
  /// Lets a signal come from the bus.
  void inject(const std::string& topic, const std::string& value) const {
    bus->inject(topic, enveloped(value));
  }
  void injectAt(double seconds, const std::string& topic, const std::string& value) {
    at(seconds, [=, this] { inject(topic, value); });
  }
  /// The signals that the service sent on a topic in that time, oldest first.
  [[nodiscard]] std::vector<std::string> sentOn(const std::string& topic, double from_s = 0,
                                                double to_s = 1e6) const;

  ScenarioTime time;
  TerminalState terminal;
  ResetLine resets;
  std::shared_ptr<ecu::koru::com::MemoryTransport> bus;
  std::unique_ptr<ecu::koru::gpspub::GPSDClient> service;
};

/// "ms:status/sentences" of each, with blanks between them.
[[nodiscard]] std::string cadence(const std::vector<Published>& published);

/// Sentences of one epoch at "hhmmss.ss" and "ddmmyy"; `kinds` as "RMC GGA GSA GSA GST".
[[nodiscard]] std::string sentences(const std::string& time, const std::string& date,
                                    const std::string& kinds);
/// Those of 23 March 2026 12:35:SS.hh.
[[nodiscard]] std::string epoch(int second, const std::string& kinds = "RMC GGA GSA GSA GST",
                                int hundredths = 0);

}  // namespace test
