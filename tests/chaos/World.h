#pragma once

#include <fcntl.h>
#include <stdlib.h>

#include <fstream>
#include <random>

#include "chaos/Bus.h"
#include "support/Broker.h"
#include "system/SatnavdTest.h"

namespace test::chaos {

inline constexpr int64_t MS = 1'000'000;  // ns

/// All that the service listens to, in receiver mode.
inline const std::vector<std::string> SUBSCRIBED = {
    "rt/system/blackout_mode",    "rt/system/hw_version",       "system/gnss/source",
    "system/gnss/log_config",     "system/time/timezone",       "system/sysparam/0x0000A00F",
    "system/sysparam/0x0000A01F", "system/sysparam/0x0000A020", "system/sysparam/0x0000A021",
    "system/sysparam/0x0000A022", "system/sysparam/0x0000A060"};

/// The far end of a pseudo-terminal that stands behind `link`.
inline int make_terminal(const std::string& link) {
  const int master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK);
  if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0) throw std::runtime_error("no terminal");
  std::filesystem::create_symlink(ptsname(master), link);
  return master;
}

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
  World(bool control, unsigned seed)
      : m_control(control),
        m_random(seed),
        m_device(m_folder / "receiver"),
        m_clock(m_folder.write("clock", std::string(sizeof(int64_t), '\0'))),
        m_broker({"max_queued_messages 1000"}),
        m_bus(m_broker.port()) {
    std::filesystem::create_directory(m_folder / "gpio197");
    m_folder.write("gpio197/value", "");
    m_folder.write("satnavd.conf", "logmode = STDERR\nset_system_time = true\nport = " +
                                       std::to_string(m_broker.port()) + "\ngnss_device = " + m_device +
                                       "\ndisable_hw_init = " + (m_control ? "false" : "true") + "\n");
    set_clock_shift_us(1'000'000'000 - clock_ns(CLOCK_REALTIME) / 1000);  // in 1970
    start_broker();
    plug_in();
  }

  void start_service() {
    m_service = std::make_unique<Process>(std::vector<std::string>{program("satnavd")},
                                          Process::Options{m_folder.path(),
                                                           {{"LD_PRELOAD", GPIO_PRELOAD ":" CLOCK_PRELOAD},
                                                            {"SATNAVD_TEST_GPIO", m_folder / ""},
                                                            {"SATNAVD_TEST_CLOCK", m_clock},
                                                            {"ASAN_OPTIONS", "verify_asan_link_order=0"}}});
  }
  /// The exit status of a stop by SIGTERM; nothing when it takes more than two seconds.
  std::optional<int> stop_service() {
    m_service->signal(SIGTERM);
    return m_service->wait_for_exit(2000);
  }
  [[nodiscard]] Process& service() { return *m_service; }
  [[nodiscard]] const Bus& bus() const { return m_bus; }
  [[nodiscard]] Resources resources() const {
    const std::string process = "/proc/" + std::to_string(m_service->pid());
    const auto entries = [&](const char* folder) {
      return static_cast<size_t>(std::distance(std::filesystem::directory_iterator(process + folder),
                                               std::filesystem::directory_iterator()));
    };
    const std::string status = text_of(process + "/status");
    return {entries("/fd"), entries("/task"), std::stol(status.substr(status.find("VmRSS:") + 6))};
  }
  std::mt19937& random() { return m_random; }
  /// The microseconds by which the service's clock differs from the machine's.
  [[nodiscard]] int64_t clock_shift_us() const {
    int64_t shift = 0;
    text_of(m_clock).copy(reinterpret_cast<char*>(&shift), sizeof shift);
    return shift;
  }

  void nothing() {}
  void kill_broker() { m_broker.kill(); }
  void freeze_broker() { m_broker.freeze(); }
  void mute_broker() {
    m_broker.kill();
    m_mute = std::make_unique<MuteBroker>(m_broker.port());
  }
  void thaw_broker() { m_broker.thaw(); }
  void start_broker() {
    m_mute.reset();
    if (!m_broker.start()) throw std::runtime_error("no broker");
    start_unit();
  }
  /// Its link must go too: the system gives the terminal's name to the next one who asks, perhaps another
  /// test.
  void unplug() {
    m_meanwhile = {};
    m_receiver.reset();
    std::filesystem::remove(m_device);
  }
  void plug_in() { start_receiver({"--fault", "reset-to=9600"}); }
  void power_cycle() { m_receiver->write_stdin("power-cycle\n"); }
  void wrong_baud() {
    const int rates[] = {9600, 19200, 57600, 115200};
    start_receiver({"--baud", std::to_string(rates[any(0, 3)]), "--fault", "reset-to=9600"});
  }
  void bad_line() {
    start_receiver(
        {"--fault", "drop=0.1,corrupt=0.3,split=0.1,garbage-ubx=0.2,seed=" + std::to_string(any(1, 1000))});
  }
  /// The device gives random bytes as fast as they are taken.
  void flood() {
    unplug();
    const std::shared_ptr<FILE> terminal(fdopen(make_terminal(m_device), "r+"), fclose);
    meanwhile([fd = fileno(terminal.get()), terminal, noise = std::mt19937(m_random())]() mutable {
      char block[512];
      for (char& byte : block) byte = static_cast<char>(noise() & 0xFF);
      if (write(fd, block, sizeof block) > 0) return;
      while (read(fd, block, sizeof block) > 0) continue;
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    });
  }
  void hostile_bytes() {
    meanwhile([this] {
      for (const auto& topic : SUBSCRIBED) m_bus.publish(topic, any_payload());
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    });
  }
  /// What hostile bytes have switched is switched back.
  void calm_down() {
    m_meanwhile = {};
    m_bus.publish("system/gnss/log_config", std::string(3'000'000, 'x'));
    start_unit();
    for (const char* parameter : {"A01F 01", "A020 01", "A021 00", "A022 00", "A060 01"})
      m_unit->write_stdin(std::string("param 0x") + parameter + "\n");
    m_unit->write_stdin("log-config 00000000\n");
    wake_up();
    gnss_on();
  }
  void step_clock() {
    constexpr int64_t S = 1'000'000;
    constexpr int64_t DAY = 86400 * S;
    const int64_t steps[] = {-3600 * S, 10 * S, 365 * DAY, -DAY, 7300 * DAY, 0};
    set_clock_shift_us(steps[any(0, 5)]);
  }
  void gnss_off() { m_unit->write_stdin("param 0xA00F 00\n"); }
  void gnss_on() { m_unit->write_stdin("param 0xA00F 01\n"); }
  void blackout() { m_unit->write_stdin("blackout on\n"); }
  /// The receiver hears its reset line.
  void wake_up() {
    const auto pulses = [this] { return occurrences(text_of(m_folder / "gpio197/value"), "1"); };
    const size_t before = pulses();
    m_unit->write_stdin("blackout off\n");
    if (m_control && eventually([&] { return pulses() > before; }, 3000)) m_receiver->write_stdin("reset\n");
  }

 private:
  void set_clock_shift_us(int64_t shift) const {
    std::fstream file(m_clock, std::ios::in | std::ios::out | std::ios::binary);  // as it is mapped
    file.write(reinterpret_cast<const char*>(&shift), sizeof shift);
  }
  void start_receiver(const std::vector<std::string>& options) {
    unplug();
    std::vector<std::string> argv = {program("gnss-sim"), "--link", m_device, "--rate",
                                     m_control ? "1" : "4"};
    argv.insert(argv.end(), options.begin(), options.end());
    m_receiver = std::make_unique<Process>(argv);
    if (!m_receiver->wait_for_output("\n", PATIENCE_MS)) throw std::runtime_error(m_receiver->err());
  }
  void start_unit() {
    m_unit = std::make_unique<Process>(std::vector<std::string>{
        program("ecu-sim"), "--keep", "--var", "hwversion=zpt", "--port", std::to_string(m_broker.port())});
    if (!m_unit->wait_for_output("messages published", PATIENCE_MS)) throw std::runtime_error(m_unit->err());
  }
  [[nodiscard]] int any(int first, int last) {
    return std::uniform_int_distribution<int>(first, last)(m_random);
  }
  [[nodiscard]] std::string any_bytes(size_t longest) {
    std::string bytes(static_cast<size_t>(any(0, static_cast<int>(longest))), '\0');
    for (char& byte : bytes) byte = static_cast<char>(any(0, 255));
    return bytes;
  }
  /// From plain noise to a right envelope around wrong bytes.
  [[nodiscard]] std::string any_payload() {
    using namespace std::string_literals;
    std::string body = any_bytes(any(0, 9) == 0 ? 70'000 : 40);
    const int kind = any(0, 3);
    if (kind == 0) return body;
    if (kind == 1) body.insert(0, "\x0A"s + static_cast<char>(body.size() & 0x7F));  // RtSignal
    const size_t claimed = kind == 2 ? m_random() : body.size();
    std::string header = "\x09\x01\0\x12\0"s;
    for (unsigned shift = 0; shift < 32; shift += 8) header += static_cast<char>(claimed >> shift & 0xFF);
    return header + '\x11' + std::string(8, '\x01') + body;
  }
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
