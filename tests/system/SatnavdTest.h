#pragma once

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "support/Broker.h"

namespace test {

inline constexpr int PATIENCE_MS = 20'000;
inline constexpr int64_t S = 1'000'000'000;  // ns
// GnssData.status
inline constexpr int NOTHING_KNOWN = 1;
inline constexpr int VALID = 3;

inline int64_t clock_ns(clockid_t clock) {
  timespec now{};
  clock_gettime(clock, &now);
  return int64_t{now.tv_sec} * S + now.tv_nsec;
}

/// Returns the text after "name:" in the kernel's status of a process; "0" if the line is absent.
inline std::string status_of(pid_t pid, const std::string& name) {
  const std::string status = text_of("/proc/" + std::to_string(pid) + "/status");
  const size_t at = status.find(name + ":");
  return at == std::string::npos ? "0" : status.substr(at + name.size() + 1);
}

/// Waits until `part` is in the standard error `count` times.
inline bool logged(const Process& process, const std::string& part, size_t count) {
  return eventually([&] { return occurrences(process.err(), part) >= count; }, PATIENCE_MS);
}

/// Listens and never answers. The system accepts its connections.
class MuteBroker : Unique {
 public:
  explicit MuteBroker(uint16_t on_port = free_port()) : port(on_port), m_listener(listen_on(port)) {
    EXPECT_GE(m_listener, 0);
  }
  ~MuteBroker() { close(m_listener); }

  [[nodiscard]] bool called() const {
    pollfd state{m_listener, POLLIN, 0};
    return poll(&state, 1, PATIENCE_MS) == 1 && accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC) >= 0;
  }

  const uint16_t port;

 private:
  const int m_listener;
};

/// Returns the command line of another program, with the broker's port.
inline Words tool(Words argv, const Broker& broker) {
  argv[0] = program(argv[0]);
  argv.insert(argv.end(), {"--port", std::to_string(broker.port())});
  return argv;
}

inline Words joined(Words some, const Words& more) {
  some.insert(some.end(), more.begin(), more.end());
  return some;
}

/// Creates a terminal without a receiver and a link to it. Returns its other end.
inline int terminal(const std::string& link, int flags = 0) {
  const int master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | flags);
  EXPECT_EQ(grantpt(master) + unlockpt(master), 0);
  EXPECT_EQ(symlink(ptsname(master), link.c_str()), 0);
  return master;
}

/// Runs satnav-tap for fixes, or for another topic. It has subscribed when the constructor returns.
class Tap {
 public:
  explicit Tap(const Broker& broker, const std::string& topic = "system/gnss/data", const Words& more = {})
      : m_process(tool(joined({"satnav-tap", "--json", "--topic", topic}, more), broker)) {
    const std::string name = "SUBSCRIBE from satnav-tap-" + std::to_string(m_process.pid());
    EXPECT_TRUE(eventually([&] { return broker.log().find(name) != std::string::npos; }, PATIENCE_MS));
  }

  /// Returns everything that it has printed.
  [[nodiscard]] std::string text() const { return m_process.out(); }
  /// Returns all messages so far, oldest first.
  const std::vector<nlohmann::json>& fixes() {
    const std::string text = m_process.out();
    for (size_t end; (end = text.find('\n', m_parsed)) != std::string::npos; m_parsed = end + 1) {
      m_fixes.push_back(nlohmann::json::parse(text.substr(m_parsed, end - m_parsed)));
    }
    return m_fixes;
  }
  /// Returns how many fixes of this status were published after a time since boot.
  int64_t count_since(int64_t boot_ns, int status) {
    return std::ranges::count_if(fixes(), [&](const auto& fix) {
      return fix["envelope"]["timestamp_ns"] > boot_ns && fix["body"].value("status", 0) == status;
    });
  }
  /// Waits for that many fixes published from now on.
  bool gets(int64_t count, int status) {
    const int64_t now = clock_ns(CLOCK_BOOTTIME);
    return eventually([&] { return count_since(now, status) >= count; }, PATIENCE_MS);
  }

 private:
  Process m_process;
  size_t m_parsed = 0;
  std::vector<nlohmann::json> m_fixes;
};

/// satnavd with its surroundings in a vehicle: a broker, the rest of the unit, a receiver.
class SatnavdTest : public testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(broker.start()); }

  /// Leaves variables and parameters on the broker.
  void publish_unit(Words options = {}) const {
    options.insert(options.begin(), "ecu-sim");
    Process unit(tool(options, broker));
    ASSERT_EQ(unit.wait_for_exit(PATIENCE_MS), 0) << unit.err();
  }
  /// Starts the rest of the unit, which has published its state and takes commands.
  [[nodiscard]] std::unique_ptr<Process> start_unit(Words options = {}) const {
    options.insert(options.begin(), {"ecu-sim", "--keep"});
    auto unit = std::make_unique<Process>(tool(options, broker));
    EXPECT_TRUE(unit->wait_for_output("messages published", PATIENCE_MS)) << unit->err();
    return unit;
  }
  /// Starts the receiver that satnavd looks for.
  [[nodiscard]] std::unique_ptr<Process> receiver(Words options) const {
    options.insert(options.begin(), {program("gnss-sim"), "--link", device});
    auto simulator = std::make_unique<Process>(options);
    EXPECT_TRUE(simulator->wait_for_output("/dev/pts/", PATIENCE_MS)) << simulator->err();
    return simulator;
  }
  /// Starts the service in a new folder. `config` is added to a configuration for the test's broker and
  /// receiver that sends the receiver nothing. `launcher` is a program that becomes satnavd.
  std::unique_ptr<Process> satnavd(const std::string& config = {}, const Words& options = {},
                                   Words launcher = {}) {
    const std::string name = "satnavd-" + std::to_string(++m_started);
    std::filesystem::create_directory(folder / name);
    folder.write(name + "/satnavd.conf", "logmode = STDERR\ndisable_hw_init = true\nclient_name = " + name +
                                             "\nport = " + std::to_string(broker.port()) +
                                             "\ngnss_device = " + device + "\n" + config);
    launcher.push_back(program("satnavd"));
    launcher.insert(launcher.end(), options.begin(), options.end());
    return std::make_unique<Process>(launcher, folder / name);
  }

  /// Returns a launcher that preloads stand-ins for the parts of the system in these variables.
  static Words preloaded(Words variables) {
    variables.insert(variables.begin(),
                     {"env", "LD_PRELOAD=" PRELOAD, "ASAN_OPTIONS=verify_asan_link_order=0"});
    return variables;
  }
  static void expect_end(Process& service, int signal = SIGTERM) {
    service.signal(signal);
    EXPECT_EQ(service.wait_for_exit(2000), 0) << service.err();
  }

  Broker broker;
  const TempDir folder;
  const std::string device = folder / "receiver";

 private:
  int m_started = 0;
};

}  // namespace test
