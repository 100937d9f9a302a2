#pragma once

#include <mosquitto.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <fstream>
#include <mutex>
#include <random>
#include <thread>

#include "proto/nvxproto.pb.h"
#include "support/LocalSocket.h"
#include "system/SatnavdTest.h"

namespace test::chaos {

inline constexpr int64_t MS = S / 1000;

/// All topics that the service subscribes to in receiver mode.
inline const Words SUBSCRIBED = {
    "rt/system/blackout_mode",    "rt/system/hw_version",       "system/gnss/source",
    "system/gnss/log_config",     "system/time/timezone",       "system/sysparam/0x0000A00F",
    "system/sysparam/0x0000A01F", "system/sysparam/0x0000A020", "system/sysparam/0x0000A021",
    "system/sysparam/0x0000A022", "system/sysparam/0x0000A060"};

inline int setting(const char* name, int otherwise) {
  const char* const text = std::getenv(name);
  return text != nullptr ? std::stoi(text) : otherwise;
}

/// A received position record. Times are of the machine's clocks.
struct Fix {
  int64_t sent_ns = 0;  ///< since boot, from the envelope
  int64_t utc_us = 0;   ///< 0: none
  int status = 0;
};

/// The chaos run's own subscriber and publisher. It always reconnects to its broker, and shares only the
/// message type with the service. Any thread may call it.
class Bus : Unique {
 public:
  explicit Bus(uint16_t port) : m_client(mosquitto_new(nullptr, true, this)) {
    mosquitto_connect_callback_set(m_client, [](mosquitto* client, void*, int code) {
      if (code == 0) mosquitto_subscribe(client, nullptr, "system/gnss/data", 0);
    });
    mosquitto_message_callback_set(m_client, [](mosquitto*, void* self, const mosquitto_message* message) {
      static_cast<Bus*>(self)->receive(*message);
    });
    mosquitto_connect(m_client, "127.0.0.1", port, 60);
    mosquitto_loop_start(m_client);  // reconnects a second after each loss
  }
  ~Bus() {
    mosquitto_disconnect(m_client);
    mosquitto_loop_stop(m_client, false);
    mosquitto_destroy(m_client);
  }

  void publish(const std::string& topic, const std::string& payload) {
    mosquitto_publish(m_client, nullptr, topic.c_str(), static_cast<int>(payload.size()), payload.data(), 0,
                      false);
  }
  [[nodiscard]] std::vector<Fix> fixes() const {
    const std::lock_guard lock(m_mutex);
    return m_fixes;
  }
  /// Returns how many records of a status were sent after a time since boot.
  [[nodiscard]] int64_t count_since(int64_t boot_ns, int status) const {
    const std::lock_guard lock(m_mutex);
    return std::count_if(m_fixes.begin(), m_fixes.end(),
                         [&](const Fix& fix) { return fix.sent_ns > boot_ns && fix.status == status; });
  }

 private:
  void receive(const mosquitto_message& message) {
    constexpr int HEADER = 18, SENT_AT = 10;  // the stamp is little-endian, as this machine is
    const auto* const bytes = static_cast<const char*>(message.payload);
    ecu::koru::pb::GnssData data;
    if (message.payloadlen < HEADER || !data.ParseFromArray(bytes + HEADER, message.payloadlen - HEADER))
      return;  // not a message of the service
    Fix fix{0, static_cast<int64_t>(data.utc_time_us()), data.status()};
    std::memcpy(&fix.sent_ns, bytes + SENT_AT, sizeof fix.sent_ns);
    const std::lock_guard lock(m_mutex);
    m_fixes.push_back(fix);
  }

  mosquitto* const m_client;
  mutable std::mutex m_mutex;
  std::vector<Fix> m_fixes;
};

/// Notices when the machine itself does not run this process for a while, which no service can make up for.
class Stalls : Unique {
 public:
  /// Returns how long the process did not run after that time since boot, ns.
  [[nodiscard]] int64_t since(int64_t boot_ns) const {
    const std::lock_guard lock(m_mutex);
    int64_t sum = 0;
    for (const auto& [end_ns, length_ns] : m_stalls) sum += end_ns > boot_ns ? length_ns : 0;
    return sum;
  }

 private:
  static constexpr int64_t STEP_NS = 20 * MS, STALL_NS = 100 * MS;

  void watch(const std::stop_token& stop) {
    for (int64_t before = clock_ns(CLOCK_BOOTTIME); !stop.stop_requested();) {
      std::this_thread::sleep_for(std::chrono::nanoseconds(STEP_NS));
      const int64_t now = clock_ns(CLOCK_BOOTTIME), late = now - before - STEP_NS;
      before = now;
      const std::lock_guard lock(m_mutex);
      if (late > STALL_NS) m_stalls.emplace_back(now, late);
    }
  }

  mutable std::mutex m_mutex;
  std::vector<std::pair<int64_t, int64_t>> m_stalls;  // end since boot, length
  std::jthread m_watch{[this](const std::stop_token& stop) { watch(stop); }};
};

/// A vehicle in which everything can fail: broker, rest of the unit, receiver, system clock, with the service
/// among them. Each fault is a pair of functions that begin and end it.
class World : public SatnavdTest {
 public:
  World() { broker.configure({"max_queued_messages 1000"}); }

  /// With `control`, the service configures and supervises the receiver.
  void switch_on(bool control) {
    m_control = control;
    bus.emplace(broker.port());
    std::filesystem::create_directory(folder / "gpio197");
    folder.write("gpio197/value", "");
    folder.write("clock", std::string(sizeof(int64_t), '\0'));
    set_clock_shift_us(1'000'000'000 - clock_ns(CLOCK_REALTIME) / 1000);  // the service starts in 1970
    m_unit = start_unit({"--var", "hwversion=zpt"});
    plug_in();
  }
  void start_service() {
    service = satnavd("logmode = SYSLOG\nset_system_time = true\nclient_name = satnavd\ndisable_hw_init = " +
                          std::string(m_control ? "false\n" : "true\n"),
                      {},
                      preloaded({"SATNAVD_TEST_GPIO=" + folder / "", "SATNAVD_TEST_CLOCK=" + m_clock,
                                 "SATNAVD_TEST_LOG=" + m_log}));
  }
  /// Stops the service by SIGTERM. Returns its exit status; empty if that takes more than two seconds.
  std::optional<int> stop_service() {
    service->signal(SIGTERM);
    return service->wait_for_exit(2000);
  }
  [[nodiscard]] std::string log() const {
    const std::lock_guard lock(m_records_mutex);
    return m_records.substr(m_records.size() - std::min<size_t>(m_records.size(), 5000));
  }
  /// Returns the service's numbers of descriptors and threads.
  [[nodiscard]] std::pair<long, long> handles() const {
    const auto entries = [this](const char* name) {
      return std::distance(std::filesystem::directory_iterator(process() + name), {});
    };
    return {entries("/fd"), entries("/task")};
  }
  [[nodiscard]] long resident_kib() const { return std::stol(status_of(service->pid(), "VmRSS")); }
  /// Returns the difference of the service's clock from the machine's, us.
  [[nodiscard]] int64_t clock_shift_us() const {
    int64_t shift = 0;
    text_of(m_clock).copy(reinterpret_cast<char*>(&shift), sizeof shift);
    return shift;
  }
  [[nodiscard]] int any(int first, int last) { return std::uniform_int_distribution(first, last)(random); }

  void nothing() {}
  void kill_broker() { broker.kill(); }
  void freeze_broker() { broker.freeze(); }
  void mute_broker() {
    broker.kill();
    m_mute = std::make_unique<MuteBroker>(broker.port());
  }
  void thaw_broker() { broker.thaw(); }
  void start_broker() {
    m_mute.reset();
    ASSERT_TRUE(broker.start());
    m_unit = start_unit({"--var", "hwversion=zpt"});
  }
  /// Removes the link too, because the system reuses the terminal's name.
  void unplug() {
    m_meanwhile = {};
    m_receiver.reset();
    std::filesystem::remove(device);
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
  /// Makes the device a terminal that delivers random bytes as fast as they are read.
  void flood() {
    unplug();
    const int master = terminal(device, O_NONBLOCK);
    const std::shared_ptr<FILE> closed_at_the_end(fdopen(master, "r+"), fclose);
    meanwhile([master, closed_at_the_end, noise = std::mt19937(random())]() mutable {
      char block[512];
      for (char& byte : block) byte = static_cast<char>(noise() & 0xFF);
      if (write(master, block, sizeof block) > 0) return;
      while (read(master, block, sizeof block) > 0) continue;
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    });
  }
  void hostile_bytes() {
    meanwhile([this] { publish_on_all([this] { return any_payload(); }, 5); });
  }
  void flood_topics() {
    meanwhile([this] { publish_on_all([] { return "malformed"; }, 1); });
  }
  void stop_flood() { m_meanwhile = {}; }
  void stop_log() {
    m_log_reads = false;
    for (int i = 0; i < 100; ++i) publish_on_all([] { return "malformed"; }, 0);
  }
  void resume_log() { m_log_reads = true; }
  /// Restores everything that hostile bytes may have switched.
  void calm_down() {
    m_meanwhile = {};
    bus->publish("system/gnss/log_config", std::string(3'000'000, 'x'));
    m_unit = start_unit({"--var", "hwversion=zpt"});
    for (const char* parameter : {"A01F 01", "A020 01", "A021 00", "A022 00", "A060 01"})
      m_unit->write_stdin(std::string("param 0x") + parameter + "\n");
    m_unit->write_stdin("log-config 00000000\n");
    wake_up();
    gnss_on();
  }
  void step_clock() {
    constexpr int64_t DAY_S = 86400;
    const int64_t steps_s[] = {-3600, 10, 365 * DAY_S, -DAY_S, 7300 * DAY_S, 0};
    set_clock_shift_us(steps_s[any(0, 5)] * 1'000'000);
  }
  void gnss_off() { m_unit->write_stdin("param 0xA00F 00\n"); }
  void gnss_on() { m_unit->write_stdin("param 0xA00F 01\n"); }
  void blackout() { m_unit->write_stdin("blackout on\n"); }
  /// Ends radio silence. If the service pulses the reset line, resets the receiver.
  void wake_up() {
    const auto pulses = [this] { return occurrences(text_of(folder / "gpio197/value"), "1"); };
    const size_t before = pulses();
    m_unit->write_stdin("blackout off\n");
    if (m_control && eventually([&] { return pulses() > before; }, 3000)) m_receiver->write_stdin("reset\n");
  }

  std::mt19937 random{static_cast<unsigned>(setting("SATNAVD_CHAOS_SEED", 1))};
  std::optional<Bus> bus;
  std::unique_ptr<Process> service;
  Stalls stalls;

 private:
  [[nodiscard]] std::string process() const { return "/proc/" + std::to_string(service->pid()); }
  void set_clock_shift_us(int64_t shift) const {
    std::fstream file(m_clock, std::ios::in | std::ios::out | std::ios::binary);  // the file is mapped
    file.write(reinterpret_cast<const char*>(&shift), sizeof shift);
  }
  void start_receiver(Words options) {
    unplug();
    options.insert(options.end(), {"--rate", m_control ? "1" : "4"});
    m_receiver = receiver(options);
  }
  template <typename Payload>
  void publish_on_all(Payload payload, int pause_ms) {
    for (const auto& topic : SUBSCRIBED) bus->publish(topic, payload());
    std::this_thread::sleep_for(std::chrono::milliseconds(pause_ms));
  }
  /// Returns noise, or noise after a header that is correct except, perhaps, for the body length.
  [[nodiscard]] std::string any_payload() {
    std::string body(static_cast<size_t>(any(0, any(0, 9) == 0 ? 70'000 : 40)), '\0');
    for (char& byte : body) byte = static_cast<char>(any(0, 255));
    if (any(0, 2) == 0) return body;
    const size_t claimed = any(0, 1) == 0 ? random() : body.size();
    std::string header("\x09\x01\0\x12\0", 5);
    for (unsigned shift = 0; shift < 32; shift += 8) header += static_cast<char>(claimed >> shift & 0xFF);
    return header + '\x11' + std::string(8, '\x01') + body;
  }
  /// Repeats a step on a separate thread until that is replaced.
  template <typename Function>
  void meanwhile(Function step) {
    m_meanwhile = std::jthread([step = std::move(step)](const std::stop_token& stop) mutable {
      while (!stop.stop_requested()) step();
    });
  }

  void read_log(const std::stop_token& stop) {
    const LocalSocket daemon(m_log);
    while (!stop.stop_requested()) {
      const std::string record = m_log_reads ? daemon.received() : "";
      if (record.empty()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
      const std::lock_guard lock(m_records_mutex);
      if (!record.empty()) m_records += record + "\n";
    }
  }

  bool m_control = false;
  const std::string m_clock = folder / "clock";
  const std::string m_log = folder / "log";
  std::atomic<bool> m_log_reads = true;
  mutable std::mutex m_records_mutex;
  std::string m_records;
  std::jthread m_log_daemon{[this](const std::stop_token& stop) { read_log(stop); }};
  std::unique_ptr<MuteBroker> m_mute;
  std::unique_ptr<Process> m_unit;
  std::unique_ptr<Process> m_receiver;
  std::jthread m_meanwhile;
};

}  // namespace test::chaos
