#pragma once

#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "chaos/Bus.h"
#include "support/Broker.h"
#include "system/SatnavdTest.h"

namespace test::chaos {

inline constexpr int64_t MS = 1'000'000;  // ns

/// What the service has of the system.
struct Resources {
  size_t descriptors = 0;
  size_t threads = 0;
  long resident_kib = 0;
};

/// A vehicle in which everything can go wrong: broker, rest of the unit, receiver, system clock, and the
/// service among them. Each fault is a pair of functions, its beginning and its end.
class World {
 public:
  /// With `control` the service configures and supervises the receiver.
  World(bool control, unsigned seed);

  void start_service();
  /// The exit status of a stop by SIGTERM; nothing when it takes more than two seconds.
  std::optional<int> stop_service();
  [[nodiscard]] Process& service() { return *m_service; }
  [[nodiscard]] const Bus& bus() const { return m_bus; }
  [[nodiscard]] Resources resources() const;
  std::mt19937& random() { return m_random; }
  /// The microseconds by which the service's clock differs from the machine's.
  [[nodiscard]] int64_t clock_shift_us() const;

  void nothing() {}
  void kill_broker() { m_broker.kill(); }
  void freeze_broker() { m_broker.freeze(); }
  void mute_broker();
  void thaw_broker() { m_broker.thaw(); }
  void start_broker();
  void unplug();
  void plug_in();
  void power_cycle() { m_receiver->write_stdin("power-cycle\n"); }
  void wrong_baud();
  void bad_line();
  void flood();
  void hostile_bytes();
  void calm_down();
  void step_clock();
  void gnss_off() { m_unit->write_stdin("param 0xA00F 00\n"); }
  void gnss_on() { m_unit->write_stdin("param 0xA00F 01\n"); }
  void blackout() { m_unit->write_stdin("blackout on\n"); }
  void wake_up();

 private:
  void start_receiver(const std::vector<std::string>& options);
  void start_unit();
  [[nodiscard]] int any(int first, int last);
  [[nodiscard]] std::string any_bytes(size_t longest);
  [[nodiscard]] std::string any_payload();
  /// Does something again and again on a thread of its own, until that is replaced.
  template <typename Function>
  void meanwhile(Function step) {
    m_meanwhile = std::jthread([step = std::move(step)](const std::stop_token& stop) mutable {
      while (!stop.stop_requested()) step();
    });
  }

  const bool m_control;
  std::mt19937 m_random;
  const TempDir m_folder;
  const std::string m_device;
  const std::string m_clock;
  Broker m_broker;
  std::unique_ptr<MuteBroker> m_mute;
  Bus m_bus;
  std::unique_ptr<Process> m_unit;
  std::unique_ptr<Process> m_receiver;
  std::unique_ptr<Process> m_service;
  std::jthread m_meanwhile;
};

}  // namespace test::chaos
