#include "chaos/World.h"

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <fstream>

namespace test::chaos {

namespace {

using namespace std::string_literals;

constexpr int BAUD = 38400;
constexpr int64_t IN_1970_US = 1'000'000'000;

/// All that the service listens to, in receiver mode.
const std::vector<std::string> SUBSCRIBED = {
    "rt/system/blackout_mode",    "rt/system/hw_version",       "system/gnss/source",
    "system/gnss/log_config",     "system/time/timezone",       "system/sysparam/0x0000A00F",
    "system/sysparam/0x0000A01F", "system/sysparam/0x0000A020", "system/sysparam/0x0000A021",
    "system/sysparam/0x0000A022", "system/sysparam/0x0000A060"};

/// The far end of a pseudo-terminal that stands behind `link`.
int make_terminal(const std::string& link) {
  const int master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK);
  if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0) throw std::runtime_error("no terminal");
  std::filesystem::create_symlink(ptsname(master), link);
  return master;
}

}  // namespace

World::World(bool control, unsigned seed)
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
  const int64_t shift = IN_1970_US - clock_ns(CLOCK_REALTIME) / 1000;
  m_folder.write("clock", {reinterpret_cast<const char*>(&shift), sizeof shift});
  start_broker();
  plug_in();
}

// --- the service

void World::start_service() {
  m_service = std::make_unique<Process>(std::vector<std::string>{program("satnavd")},
                                        Process::Options{m_folder.path(),
                                                         {{"LD_PRELOAD", GPIO_PRELOAD ":" CLOCK_PRELOAD},
                                                          {"SATNAVD_TEST_GPIO", m_folder / ""},
                                                          {"SATNAVD_TEST_CLOCK", m_clock},
                                                          {"ASAN_OPTIONS", "verify_asan_link_order=0"}}});
}

std::optional<int> World::stop_service() {
  m_service->signal(SIGTERM);
  return m_service->wait_for_exit(2000);
}

Resources World::resources() const {
  const std::string process = "/proc/" + std::to_string(m_service->pid());
  const auto entries = [&](const char* folder) {
    return static_cast<size_t>(std::distance(std::filesystem::directory_iterator(process + folder),
                                             std::filesystem::directory_iterator()));
  };
  const std::string status = text_of(process + "/status");
  return {entries("/fd"), entries("/task"), std::stol(status.substr(status.find("VmRSS:") + 6))};
}

// --- the broker

void World::start_broker() {
  m_mute.reset();
  if (!m_broker.start()) throw std::runtime_error("no broker");
  start_unit();
}

void World::start_unit() {
  m_unit = std::make_unique<Process>(std::vector<std::string>{
      program("ecu-sim"), "--keep", "--var", "hwversion=zpt", "--port", std::to_string(m_broker.port())});
  if (!m_unit->wait_for_output("messages published", PATIENCE_MS)) throw std::runtime_error(m_unit->err());
}

void World::mute_broker() {
  m_broker.kill();
  m_mute = std::make_unique<MuteBroker>(m_broker.port());
}

// --- the receiver

void World::start_receiver(const std::vector<std::string>& options) {
  unplug();
  std::vector<std::string> argv = {program("gnss-sim"), "--link", m_device, "--rate", m_control ? "1" : "4"};
  argv.insert(argv.end(), options.begin(), options.end());
  m_receiver = std::make_unique<Process>(argv);
  if (!m_receiver->wait_for_output("\n", PATIENCE_MS)) throw std::runtime_error(m_receiver->err());
}

/// Its link must go too: the system gives the terminal's name to the next one who asks, perhaps another test.
void World::unplug() {
  m_meanwhile = {};
  m_receiver.reset();
  std::filesystem::remove(m_device);
}

void World::plug_in() {
  start_receiver({"--fault", "reset-to=9600"});
}

void World::wrong_baud() {
  const int rates[] = {9600, 19200, 57600, 115200};
  start_receiver({"--baud", std::to_string(rates[any(0, 3)]), "--fault", "reset-to=9600"});
}

void World::bad_line() {
  start_receiver(
      {"--fault", "drop=0.1,corrupt=0.3,split=0.1,garbage-ubx=0.2,seed=" + std::to_string(any(1, 1000))});
}

/// The device gives random bytes as fast as they are taken.
void World::flood() {
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

// --- the rest of the unit

int World::any(int first, int last) {
  return std::uniform_int_distribution<int>(first, last)(m_random);
}

std::string World::any_bytes(size_t longest) {
  std::string bytes(static_cast<size_t>(any(0, static_cast<int>(longest))), '\0');
  for (char& byte : bytes) byte = static_cast<char>(any(0, 255));
  return bytes;
}

/// From plain noise to a right envelope around wrong bytes.
std::string World::any_payload() {
  std::string body = any_bytes(any(0, 9) == 0 ? 70'000 : 40);
  const int kind = any(0, 3);
  if (kind == 0) return body;
  if (kind == 1) body.insert(0, "\x0A"s + static_cast<char>(body.size() & 0x7F));  // RtSignal
  const size_t claimed = kind == 2 ? m_random() : body.size();
  std::string header = "\x09\x01\0\x12\0"s;
  for (unsigned shift = 0; shift < 32; shift += 8) header += static_cast<char>(claimed >> shift & 0xFF);
  return header + '\x11' + std::string(8, '\x01') + body;
}

void World::hostile_bytes() {
  meanwhile([this] {
    for (const auto& topic : SUBSCRIBED) m_bus.publish(topic, any_payload());
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  });
}

/// What hostile bytes have switched is switched back.
void World::calm_down() {
  m_meanwhile = {};
  m_bus.publish("system/gnss/log_config", std::string(3'000'000, 'x'));
  start_unit();
  for (const char* parameter : {"A01F 01", "A020 01", "A021 00", "A022 00", "A060 01"})
    m_unit->write_stdin("param 0x"s + parameter + "\n");
  m_unit->write_stdin("log-config 00000000\n");
  wake_up();
  gnss_on();
}

/// The receiver hears its reset line.
void World::wake_up() {
  const auto pulses = [this] { return occurrences(text_of(m_folder / "log"), "gpio197/value 31"); };
  const size_t before = pulses();
  m_unit->write_stdin("blackout off\n");
  if (m_control && eventually([&] { return pulses() > before; }, 3000)) m_receiver->write_stdin("reset\n");
}

// --- the clock

int64_t World::clock_shift_us() const {
  int64_t shift = 0;
  text_of(m_clock).copy(reinterpret_cast<char*>(&shift), sizeof shift);
  return shift;
}

void World::step_clock() {
  constexpr int64_t S = 1'000'000;
  constexpr int64_t DAY = 86400 * S;
  const int64_t steps[] = {-3600 * S, 10 * S, 365 * DAY, -DAY, 7300 * DAY, 0};
  const int64_t shift = steps[any(0, 5)];
  std::fstream file(m_clock, std::ios::in | std::ios::out | std::ios::binary);  // as it is mapped
  file.write(reinterpret_cast<const char*>(&shift), sizeof shift);
}

}  // namespace test::chaos
