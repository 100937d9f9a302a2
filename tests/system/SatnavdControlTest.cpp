// What the real service does to its receiver: finds it, supervises its antenna, silences it, restarts it.

#include <fcntl.h>
#include <termios.h>

#include "support/Frames.h"
#include "system/SatnavdTest.h"

namespace {

using namespace std::string_literals;
using test::eventually;
using test::nmea;
using test::occurrences;
using test::PATIENCE_MS;
using test::Tap;
using test::ubx;
using test::VALID;
using testing::HasSubstr;

constexpr int64_t MS = 1'000'000;  // ns
constexpr int HUNT_MS = 50'000;
const std::string CONTROL = "disable_hw_init = false\n";

const std::string PORT_POLL = ubx(0x06, 0x00, "");
const std::string ANTENNA_ON = ubx(0x06, 0x13, "\x1F\x00\xF0\xB9"s);
const std::string ANTENNA_OFF = ubx(0x06, 0x13, "\x0E\x00\xF0\xB9"s);
const std::string STANDBY = ubx(0x02, 0x41, std::string(8, '\0') + "\x06\0\0\0\0\0\0\0"s);
const std::string GNSS_STOP = ubx(0x06, 0x04, "\0\0\x08\0"s);
/// What the receiver answers: UART 1 at 38400 baud; GPS and GLONASS used of all four.
const std::string PORT_38400 = ubx(0x06, 0x00, "\1\0\0\0\xC0\x08\0\0\0\x96\0\0\7\0\3\0\0\0\0\0"s);
const std::string MON_GNSS = ubx(0x0A, 0x28, "\0\x0F\3\3\3\0\0\0"s);
constexpr int COMMANDS = 32;  // of the whole sequence

/// GPS, Galileo and GLONASS, the first and the last always used.
std::string cfg_gnss(bool galileo) {
  return ubx(0x06, 0x3E,
             "\0\x20\x20\3"s + "\0\x08\x10\0\1\0\1\1"s + "\2\4\x08\0"s + (galileo ? '\1' : '\0') + "\0\1\1"s +
                 "\6\x08\x0E\0\1\0\1\1"s);
}

void make_raw(int fd, speed_t speed) {
  termios attributes{};
  tcgetattr(fd, &attributes);
  cfmakeraw(&attributes);
  cfsetspeed(&attributes, speed);
  EXPECT_EQ(tcsetattr(fd, TCSANOW, &attributes), 0);
}

/// A receiver that the test plays itself, at the far end of a pseudo-terminal. It says RMC twice a second
/// unless it is to be silent.
class PlayedReceiver {
 public:
  explicit PlayedReceiver(const std::string& link)
      : m_master(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK)) {
    EXPECT_EQ(grantpt(m_master), 0);
    EXPECT_EQ(unlockpt(m_master), 0);
    make_raw(m_master, B9600);
    std::filesystem::create_symlink(ptsname(m_master), link);
  }
  ~PlayedReceiver() { close(m_master); }
  PlayedReceiver(const PlayedReceiver&) = delete;
  PlayedReceiver& operator=(const PlayedReceiver&) = delete;

  void say(const std::string& bytes) {
    EXPECT_EQ(write(m_master, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  }
  /// Goes on until `what` was heard `count` times since forget().
  bool hears(const std::string& what, size_t count = 1, int timeout_ms = PATIENCE_MS) {
    return lives_until([&] { return occurrences(m_heard, what) >= count; }, timeout_ms);
  }
  bool lives_until(const std::function<bool()>& predicate, int timeout_ms = PATIENCE_MS) {
    return eventually(
        [&] {
          live();
          return predicate();
        },
        timeout_ms);
  }
  void forget() { m_heard.clear(); }
  void forget_speed() { make_raw(m_master, B9600); }
  /// The service opened the port since forget_speed() and set it.
  [[nodiscard]] bool is_opened() const {
    termios attributes{};
    return tcgetattr(m_master, &attributes) == 0 && cfgetospeed(&attributes) == B38400;
  }

  bool silent = false;

 private:
  void live() {
    char block[256];
    for (ssize_t count; (count = read(m_master, block, sizeof block)) > 0;)
      m_heard.append(block, static_cast<size_t>(count));
    const int64_t now = test::clock_ns(CLOCK_MONOTONIC);
    if (silent || !is_opened() || now - m_said_ns < 500 * MS) return;
    m_said_ns = now;
    say(nmea("GNRMC,123519.00,A,4807.03800,N,01131.00000,E,22.4,84.4,230326,,,A,V"));
  }

  const int m_master;
  int64_t m_said_ns = 0;
  std::string m_heard;
};

class SatnavdControl : public test::SatnavdTest {
 protected:
  void SetUp() override {
    ASSERT_NO_FATAL_FAILURE(SatnavdTest::SetUp());
    publish_unit();
  }
  /// The rest of the unit, obeying commands.
  [[nodiscard]] std::unique_ptr<test::Process> unit() const {
    return std::make_unique<test::Process>(std::vector<std::string>{test::program("ecu-sim"), "--keep",
                                                                    "--port", std::to_string(broker.port())});
  }
  [[nodiscard]] std::string text_of(const std::string& name) const { return test::text_of(folder / name); }
};

TEST_F(SatnavdControl, FindsTheReceiverAtAnotherRateAndSetsIt) {
  const auto simulator = receiver({"--baud", "57600", "--trace", folder / "trace"});
  Tap tap(broker);
  const auto service = satnavd(CONTROL);
  const auto before = test::clock_ns(CLOCK_BOOTTIME);
  const auto is_set = [&] {
    return text_of("trace").find(" host> CFG-PRT UART1 38400 baud") != std::string::npos;
  };
  ASSERT_TRUE(eventually(is_set, HUNT_MS)) << text_of("trace");
  EXPECT_GT(test::clock_ns(CLOCK_BOOTTIME) - before, 10'000 * MS);
  EXPECT_EQ(occurrences(service->err(), "Change Baud rate from 57600 to 38400"), 1U) << service->err();
  EXPECT_TRUE(tap.gets(3, VALID));
  EXPECT_THAT(text_of("trace"), HasSubstr("-- speed 38400"));
  EXPECT_THAT(text_of("trace"), testing::Not(HasSubstr("reset")));
}

TEST_F(SatnavdControl, TellsWhatTheAntennaHas) {
  const auto simulator = receiver({"--trace", folder / "trace"});
  {
    const int port = open(device.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    make_raw(port, B38400);
    char byte = 0;
    while (read(port, &byte, 1) == 1 && byte != '\n') continue;                  // it has started
    const std::string settings = ANTENNA_ON + ubx(0x06, 0x01, "\x0A\x09\x01"s);  // and MON-HW each time
    ASSERT_EQ(write(port, settings.data(), settings.size()), static_cast<ssize_t>(settings.size()));
    EXPECT_TRUE(eventually([&] { return text_of("trace").find("<recv MON-HW") != std::string::npos; }, 4000));
    close(port);
  }
  test::Process tap({test::program("satnav-tap"), "--json", "--topic", "rt/system/#", "--port",
                     std::to_string(broker.port())});
  const auto service = satnavd(CONTROL);
  const auto latest = [&](const std::string& signal) {
    std::string value;
    std::istringstream lines(tap.out());
    for (std::string line; std::getline(lines, line) && !lines.eof();) {
      const auto message = nlohmann::json::parse(line);
      if (message["topic"] == "rt/system/status_gnss_antenna_" + signal) value = message["body"]["value"];
    }
    return value;
  };
  const struct {
    const char *command, *open, *short_circuit;
  } rows[] = {{"antenna ok\n", "00", "00"},
              {"antenna open\n", "01", "00"},
              {"antenna short\n", "00", "01"},
              {"antenna ok\n", "00", "00"}};
  for (const auto& row : rows) {
    simulator->write_stdin(row.command);
    EXPECT_TRUE(eventually(
        [&] { return latest("open_circuit") == row.open && latest("short_circuit") == row.short_circuit; },
        6000))
        << row.command << tap.out();
  }
}

TEST_F(SatnavdControl, SilencesTheReceiverAndWakesItByItsResetLine) {
  PlayedReceiver played(device);
  std::filesystem::create_directory(folder / "gpio197");
  folder.write("gpio197/value", "");
  const auto ecu = unit();
  Tap tap(broker);
  const auto service = satnavd(CONTROL, {},
                               {"env", "LD_PRELOAD="s + GPIO_PRELOAD, "SATNAVD_TEST_GPIO=" + folder / "",
                                "ASAN_OPTIONS=verify_asan_link_order=0"});
  ASSERT_TRUE(played.hears(PORT_POLL)) << service->err();
  played.say(PORT_38400 +
             ubx(0x06, 0x13, "\x1A\x00\xF0\xB9"s));  // confirmed; supply off: the cold start is over
  ASSERT_TRUE(played.hears(ANTENNA_ON));
  for (int i = 0; i < COMMANDS; ++i) played.say(MON_GNSS);
  ASSERT_TRUE(
      played.lives_until([&] { return service->err().find("Now initialised") != std::string::npos; }));

  played.forget();
  ecu->write_stdin("blackout on\n");
  EXPECT_TRUE(played.hears(ANTENNA_OFF + STANDBY + GNSS_STOP));
  played.silent = true;
  played.forget();
  played.forget_speed();
  EXPECT_FALSE(played.hears("\xB5", 1, 4000));  // longer than a lost receiver is missed
  EXPECT_FALSE(played.is_opened());
  EXPECT_EQ(text_of("log"), "");

  ecu->write_stdin("blackout off\n");
  EXPECT_TRUE(played.lives_until([&] { return played.is_opened(); }));
  std::istringstream log(text_of("log"));
  int64_t low_ns = 0, high_ns = 0;
  std::string low, high, rest;
  log >> low_ns >> std::ws, std::getline(log, low), log >> high_ns >> std::ws, std::getline(log, high);
  EXPECT_EQ(low, "gpio197/value 3000");
  EXPECT_EQ(high, "gpio197/value 3100");
  EXPECT_FALSE(std::getline(log, rest)) << rest;
  EXPECT_GE(high_ns - low_ns, 499 * MS);
  EXPECT_LT(high_ns - low_ns, 700 * MS);
  played.silent = false;
  EXPECT_TRUE(played.hears(PORT_POLL));
  EXPECT_TRUE(played.lives_until(
      [&] { return !tap.fixes().empty() && tap.fixes().back()["body"].contains("nmea"); }));
}

TEST_F(SatnavdControl, ChangesOfTheConstellationsRestartTheSequenceOnce) {
  PlayedReceiver played(device);
  const auto ecu = unit();
  const auto service = satnavd(CONTROL);
  ASSERT_TRUE(played.hears(PORT_POLL)) << service->err();
  const auto finish = [&](size_t times) {
    played.say(PORT_38400 + cfg_gnss(false));
    for (int i = 0; i < COMMANDS; ++i) played.say(MON_GNSS);
    return played.lives_until([&] { return occurrences(service->err(), "Now initialised") == times; });
  };
  ASSERT_TRUE(finish(1)) << service->err();
  played.forget();
  EXPECT_FALSE(played.hears(PORT_POLL, 1, 3500));
  ecu->write_stdin("param 0xA022 01\nparam 0xA022 00\nparam 0xA021 00\nparam 0xA021 01\n");
  EXPECT_TRUE(played.hears(PORT_POLL)) << service->err();
  EXPECT_TRUE(finish(2)) << service->err();
  EXPECT_TRUE(played.hears(cfg_gnss(true)));
  played.forget();
  EXPECT_FALSE(played.hears(PORT_POLL, 1, 3500));
  EXPECT_EQ(occurrences(service->err(), "Now initialised"), 2U) << service->err();
}

}  // namespace
