// The real service with a receiver that it sends its commands to; a preloaded library stands in for the SPI
// device and the processor lines.

#include "system/SatnavdTest.h"

namespace {

using test::PATIENCE_MS;
using test::text_of;
using testing::HasSubstr;
using namespace std::string_literals;

using SatnavdControl = test::SatnavdTest;

TEST_F(SatnavdControl, TheLineTakesItsCommands) {
  publish_unit();
  const std::string trace = folder / "trace";
  const auto simulator = receiver({"--baud", "57600", "--trace", trace});
  const auto service = satnavd("disable_hw_init = false\nbaud_rate = 57600\n");
  const auto is_asked = [&] { return text_of(trace).find(" host> CFG-PRT") != std::string::npos; };
  EXPECT_TRUE(test::eventually(is_asked, PATIENCE_MS)) << service->err();
}

TEST_F(SatnavdControl, UnitN2ReadsItsReceiver) {
  publish_unit({"--var", "hwversion=n2"});
  test::Tap tap(broker);
  std::filesystem::create_directories(folder / "gpio124");
  for (const char* const file : {"direction", "edge"}) folder.write(std::string("gpio124/") + file, "");
  folder.write("gpio124/value", "0");  // as long as it is low there is something to read
  const auto service = satnavd("disable_hw_init = false\ngnss_device =\n", {},
                               {"env", "LD_PRELOAD=" PRELOAD, "ASAN_OPTIONS=verify_asan_link_order=0",
                                "SATNAVD_TEST_SPI=4", "SATNAVD_TEST_GPIO=" + folder.path().string()});
  ASSERT_TRUE(service->wait_for_output("checkSpiGpioConnection(). num_errors 0 gpio_values", PATIENCE_MS))
      << service->err();
  EXPECT_TRUE(tap.gets(20, test::VALID)) << service->err();
  for (const auto& fix : tap.fixes()) EXPECT_GE(fix["body"]["nmea"].size(), 4U);
  EXPECT_EQ(text_of(folder / "gpio124/direction"), "in\0"s);
  EXPECT_EQ(text_of(folder / "gpio124/edge"), "falling\0"s);
  EXPECT_THAT(service->err(), testing::Not(HasSubstr(" ERROR ")));
  expect_end(*service);
}

}  // namespace
