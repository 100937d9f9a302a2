// The real service with a receiver on the SPI bus; a preloaded library stands in for the device and the line.

#include "system/SatnavdTest.h"

namespace {

using namespace std::string_literals;
using test::PATIENCE_MS;
using test::Tap;
using test::text_of;
using test::VALID;
using testing::HasSubstr;

constexpr int64_t MS = 1'000'000;  // ns
const std::string CONTROL = "disable_hw_init = false\n";

class SatnavdSpi : public test::SatnavdTest {
 protected:
  /// satnavd on the device that the unit's version or `options` choose. `receiver` is "HZ [FAULTS]"; `lines`
  /// is the folder with the files of its processor lines.
  std::unique_ptr<test::Process> on_spi(const std::string& receiver, const std::string& lines,
                                        const std::vector<std::string>& options = {}) {
    return satnavd(CONTROL + "gnss_device =\n", options,
                   {"env", "LD_PRELOAD="s + GPIO_PRELOAD, "SATNAVD_TEST_GPIO=" + lines,
                    "SATNAVD_TEST_SPI=" + receiver, "ASAN_OPTIONS=verify_asan_link_order=0"});
  }
  /// A folder with the files of GPIO 124, or an empty one.
  [[nodiscard]] std::string lines(const std::string& name, bool exported) const {
    std::string root = folder / name;
    std::filesystem::create_directories(root + (exported ? "/gpio124" : ""));
    for (const char* const file : {"/gpio124/value", "/gpio124/direction", "/gpio124/edge"}) {
      if (exported) folder.write(name + file, "");
    }
    return root;
  }
};

/// How often the threads of a process went to sleep by themselves.
long wake_ups(const test::Process& process) {
  long sum = 0;
  const std::string tasks = "/proc/" + std::to_string(process.pid()) + "/task";
  for (const auto& task : std::filesystem::directory_iterator(tasks)) {
    const std::string status = text_of(task.path() / "status");
    const std::string name = "\nvoluntary_ctxt_switches:";
    if (const size_t at = status.find(name); at != std::string::npos)
      sum += std::stol(status.substr(at + name.size()));
  }
  return sum;
}

TEST_F(SatnavdSpi, UnitN2ReadsItsReceiverByTheLine) {
  publish_unit({"--var", "hwversion=n2"});
  Tap tap(broker);
  const std::string root = lines("lines", true);
  const auto service = on_spi("4", root);
  ASSERT_TRUE(service->wait_for_output("checkSpiGpioConnection(). num_errors 0 gpio_values", PATIENCE_MS))
      << service->err();
  const int64_t begin_ns = test::clock_ns(CLOCK_BOOTTIME);
  EXPECT_TRUE(tap.gets(20, VALID)) << service->err();
  EXPECT_NEAR(static_cast<double>(test::clock_ns(CLOCK_BOOTTIME) - begin_ns) / MS, 5000, 700);
  for (const auto& fix : tap.fixes()) EXPECT_GE(fix["body"]["nmea"].size(), 4U);
  const std::string written = text_of(root + "/log");
  EXPECT_THAT(written, HasSubstr("gpio124/direction 696e00\n"));
  EXPECT_THAT(written, HasSubstr("gpio124/edge 66616c6c696e6700\n"));
  EXPECT_THAT(service->err(), testing::Not(HasSubstr(" ERROR ")));
  service->signal(SIGTERM);
  EXPECT_EQ(service->wait_for_exit(2000), 0);
}

TEST_F(SatnavdSpi, AnIdleServiceRarelyWakesUp) {
  publish_unit({"--var", "hwversion=n2"});
  // With its commands answered the receiver is not lost; its sentences end 20 s after power-on.
  const std::string receiver = "1 silence=40@60";
  const auto with_line = on_spi(receiver, lines("with", true));
  const auto without = on_spi(receiver, lines("without", false));
  const auto wake_ups_a_second = [&](int seconds) {
    const long before = wake_ups(*with_line), before_without = wake_ups(*without);
    const int64_t begin_ns = test::clock_ns(CLOCK_MONOTONIC);
    sleep(static_cast<unsigned>(seconds));
    const double passed_s = static_cast<double>(test::clock_ns(CLOCK_MONOTONIC) - begin_ns) / (1000 * MS);
    return std::pair(static_cast<double>(wake_ups(*with_line) - before) / passed_s,
                     static_cast<double>(wake_ups(*without) - before_without) / passed_s);
  };
  sleep(8);
  const auto busy = wake_ups_a_second(10);
  sleep(8);
  const auto idle = wake_ups_a_second(6);
  std::printf("wake-ups a second: at 1 Hz %.1f with the line, %.1f without; idle %.1f and %.1f\n", busy.first,
              busy.second, idle.first, idle.second);
  EXPECT_LE(idle.first, 100);
  EXPECT_LE(idle.second, 15);
  EXPECT_GT(idle.first, 50) << "the line is not used";
  EXPECT_THAT(without->err(), HasSubstr("Path not configured. Error to open "));
}

}  // namespace
