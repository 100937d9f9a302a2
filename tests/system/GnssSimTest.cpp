#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <termios.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <thread>

#include "support/Frames.h"
#include "support/Process.h"
#include "support/Support.h"

namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::Not;

/// gnss-sim as a child, its device known.
class Simulator {
 public:
  explicit Simulator(std::vector<std::string> options) {
    options.insert(options.begin(), test::program("gnss-sim"));
    m_process = std::make_unique<test::Process>(options);
    EXPECT_TRUE(m_process->wait_for_output("\n", 5000)) << m_process->err();
    device = m_process->out().substr(0, m_process->out().find('\n'));
  }
  test::Process& process() { return *m_process; }
  /// Ends it as Ctrl-C does and expects that it goes at once and cleanly.
  void interrupt() {
    m_process->signal(SIGINT);
    EXPECT_EQ(m_process->wait_for_exit(500), 0) << m_process->err();
  }
  std::string device;

 private:
  std::unique_ptr<test::Process> m_process;
};

/// The host's end; closed at the end of the block. Speed 0 leaves the attributes as they are.
class Port {
 public:
  explicit Port(const std::string& device, speed_t speed = 0)
      : m_fd(open(device.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK)) {
    EXPECT_GE(m_fd, 0) << device;
    if (speed == 0) return;
    termios attributes{};
    tcgetattr(m_fd, &attributes);
    cfmakeraw(&attributes);
    cfsetspeed(&attributes, speed);
    tcsetattr(m_fd, TCSANOW, &attributes);
  }
  ~Port() { close(m_fd); }
  Port(const Port&) = delete;
  Port& operator=(const Port&) = delete;

  /// What comes within a time.
  std::string read_for(std::chrono::milliseconds time) {
    std::string text;
    const auto end = std::chrono::steady_clock::now() + time;
    for (auto rest = time; rest > 0ms; rest = left(end)) {
      pollfd state{m_fd, POLLIN, 0};
      if (poll(&state, 1, static_cast<int>(rest.count())) <= 0) break;
      char block[512];
      const ssize_t count = read(m_fd, block, sizeof block);
      if (count <= 0) break;
      text.append(block, static_cast<size_t>(count));
    }
    return text;
  }
  [[nodiscard]] int descriptor() const { return m_fd; }

 private:
  static std::chrono::milliseconds left(std::chrono::steady_clock::time_point end) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
  }
  int m_fd;
};

/// Epochs are told apart by the seconds in their RMC.
int seconds_of_first_rmc(const std::string& text) {
  const size_t at = text.find("RMC,");
  return at == std::string::npos
             ? -1
             : std::stoi(text.substr(at + 8, 4)) / 100 * 60 + std::stoi(text.substr(at + 8, 4)) % 100;
}

TEST(GnssSim, LinkIsThereWhileItRunsAndReplacesOnlyLinks) {
  const test::TempDir folder;
  const std::string link = folder / "gnss";
  std::filesystem::create_symlink("/nowhere", link);
  for (const int signal : {SIGINT, SIGTERM}) {
    Simulator simulator({"--link", link});
    EXPECT_EQ(std::filesystem::read_symlink(link), simulator.device);
    simulator.process().signal(signal);
    EXPECT_EQ(simulator.process().wait_for_exit(500), 0);
    EXPECT_THAT(simulator.process().err(), HasSubstr("epochs"));
    EXPECT_FALSE(std::filesystem::is_symlink(link));
  }
  const std::string file = folder.write("file", "precious");
  test::Process refused({test::program("gnss-sim"), "--link", file});
  EXPECT_EQ(refused.wait_for_exit(2000), 2);
  EXPECT_THAT(refused.err(), HasSubstr(file + ": File exists"));
  EXPECT_EQ(std::filesystem::file_size(file), 8U);
}

TEST(GnssSim, KeepsNothingForAHostThatComesLate) {
  Simulator simulator({"--rate", "10", "--gsv", "on", "--baud", "230400", "--utc", "2026-05-01T10:00:00Z"});
  std::this_thread::sleep_for(1200ms);
  EXPECT_GE(seconds_of_first_rmc(Port(simulator.device).read_for(500ms)), 1);
  {
    const Port idle(simulator.device);  // does not read; 3.2 s overfill the terminal
    std::this_thread::sleep_for(4000ms);
  }
  std::this_thread::sleep_for(300ms);
  EXPECT_GE(seconds_of_first_rmc(Port(simulator.device).read_for(500ms)), 5);
  simulator.interrupt();
  EXPECT_THAT(simulator.process().err(),
              testing::ContainsRegex("to nobody and [1-9][0-9]* not read in time"));
}

TEST(GnssSim, ObeysCommandsOfTheHostAndOfStandardInput) {
  const test::TempDir folder;
  const std::string trace = folder / "ubx";
  Simulator simulator({"--factory", "--trace", trace, "--show", "--fault", "reset-to=19200", "--utc",
                       "2026-05-01T10:00:00.900Z"});
  const auto send = [](const Port& port, uint8_t id, const std::string& payload) {
    const std::string frame = test::ubx(6, id, payload);
    EXPECT_EQ(write(port.descriptor(), frame.data(), frame.size()), static_cast<ssize_t>(frame.size()));
  };
  const auto expect_poll = [&](Port port) {  // CFG-PRT
    port.read_for(600ms);                    // it starts
    send(port, 0, "");
    EXPECT_THAT(port.read_for(1000ms), HasSubstr("\xB5\x62\x05\x01\x02"));
  };
  {
    Port port(simulator.device);  // at 9600
    send(port, 1, std::string("\xF0\x07\x01", 3));
    send(port, 0, std::string("\1\0\0\0\xC0\x08\0\0\0\xC2\1\0\7\0\3\0\0\0\0\0", 20));
    EXPECT_THAT(port.read_for(80ms), HasSubstr("\xB5\x62\x05\x01\x02"));
  }
  {
    Port port(simulator.device, B115200);
    EXPECT_THAT(port.read_for(1100ms), testing::AllOf(HasSubstr("GNVTG"), HasSubstr("GNGST")));
  }
  simulator.process().write_stdin("antenna open\nfly\npower-cycle\n");
  EXPECT_TRUE(simulator.process().wait_for_output("unknown command \"fly\"", 1000));
  expect_poll(Port(simulator.device, B19200));
  simulator.process().close_stdin();
  EXPECT_TRUE(simulator.process().wait_for_output("Z no fix\n", 2000));
  EXPECT_THAT(simulator.process().out(), HasSubstr("\n2026-05-01T10:00:01.000Z 48."));
  simulator.interrupt();
  std::stringstream lines;
  lines << std::ifstream(trace).rdbuf();
  EXPECT_THAT(lines.str(),
              testing::ContainsRegex("^[+]0[.][0-9]{6} host> CFG-MSG GST every 1 06 01 len 3: F0 07 01\n"));
  EXPECT_THAT(lines.str(), HasSubstr(" host> CFG-PRT UART1 115200 baud"));
  EXPECT_THAT(lines.str(), HasSubstr(" <recv ACK-ACK of CFG-PRT 05 01 len 2: 06 00\n"));
  EXPECT_THAT(lines.str(),
              testing::ContainsRegex("-- antenna open\n.*-- power fails\n.*-- starts\n.*-- speed 19200\n"));
}

TEST(GnssSim, WrongOptionsAreExplained) {
  const test::TempDir folder;
  const std::string route = folder.write("route.csv", "48,10,400\n48.01,ten,400\n");
  const struct {
    std::vector<std::string> options;
    std::string expected;
  } cases[] = {
      {{"--baud", "14400"}, "--baud: 14400"},
      {{"--utc", "noon"}, "--utc: not a time"},
      {{"--fault", "drop=1.5"}, "fault drop: 1.5 is not within 0 to 1"},
      {{"--fault", "jam=1"}, "unknown fault \"jam\""},
      {{"--route", route}, route + ":2: column lon is not a number: ten"},
      {{"--route", folder / "none"}, "none: No such file"},
      {{"--replay", route}, "holds no RMC sentence"},
      {{"--loop"}, "--replay"},
      {{"--sentence-trace", folder / "no/trace"}, "No such file"},
      {{"--supported", "glonass"}, "used and not supported"},
  };
  for (const auto& c : cases) {
    std::vector<std::string> argv = c.options;
    argv.insert(argv.begin(), test::program("gnss-sim"));
    test::Process process(argv);
    EXPECT_EQ(process.wait_for_exit(5000), 2) << c.expected;
    EXPECT_THAT(process.err(), HasSubstr(c.expected));
    EXPECT_EQ(process.out(), "");
  }
}

}  // namespace
