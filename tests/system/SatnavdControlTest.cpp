// The real service with its receiver at another rate, and on the SPI bus; a preloaded library stands in for
// the SPI device and the processor lines.

#include "system/SatnavdTest.h"

namespace {

using test::PATIENCE_MS;
using test::text_of;
using testing::HasSubstr;
using namespace std::string_literals;

using SatnavdControl = test::SatnavdTest;

TEST_F(SatnavdControl, FindsTheReceiverAtAnotherRateAndSetsIt) {
  constexpr int HUNT_MS = 50'000;
  publish_unit();
  const std::string trace = folder / "trace";
  const auto simulator = receiver({"--baud", "57600", "--trace", trace});
  test::Tap tap(broker);
  const auto service = satnavd("disable_hw_init = false\n");
  const auto is_set = [&] {
    return text_of(trace).find(" host> CFG-PRT UART1 38400 baud") != std::string::npos;
  };
  ASSERT_TRUE(test::eventually(is_set, HUNT_MS)) << text_of(trace);
  EXPECT_EQ(test::occurrences(service->err(), "Change Baud rate from 57600 to 38400"), 1U) << service->err();
  EXPECT_TRUE(tap.gets(3, test::VALID));
  EXPECT_THAT(text_of(trace), HasSubstr("-- speed 38400"));
  EXPECT_THAT(text_of(trace), testing::Not(HasSubstr("reset")));
}

TEST_F(SatnavdControl, UnitN2ReadsItsReceiver) {
  publish_unit({"--var", "hwversion=n2"});
  test::Tap tap(broker);
  std::filesystem::create_directories(folder / "gpio124");
  for (const char* const file : {"direction", "edge"}) folder.write(std::string("gpio124/") + file, "");
  folder.write("gpio124/value", "0");  // as long as it is low there is something to read
  const auto service =
      satnavd("disable_hw_init = false\ngnss_device =\n", {},
              {"env", std::string("LD_PRELOAD=") + GPIO_PRELOAD, "SATNAVD_TEST_SPI=4",
               "SATNAVD_TEST_GPIO=" + folder.path().string(), "ASAN_OPTIONS=verify_asan_link_order=0"});
  ASSERT_TRUE(service->wait_for_output("checkSpiGpioConnection(). num_errors 0 gpio_values", PATIENCE_MS))
      << service->err();
  EXPECT_TRUE(tap.gets(20, test::VALID)) << service->err();
  for (const auto& fix : tap.fixes()) EXPECT_GE(fix["body"]["nmea"].size(), 4U);
  EXPECT_EQ(text_of(folder / "gpio124/direction"), "in\0"s);
  EXPECT_EQ(text_of(folder / "gpio124/edge"), "falling\0"s);
  EXPECT_THAT(service->err(), testing::Not(HasSubstr(" ERROR ")));
  service->signal(SIGTERM);
  EXPECT_EQ(service->wait_for_exit(2000), 0);
}

}  // namespace
