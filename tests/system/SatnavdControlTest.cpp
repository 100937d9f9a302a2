// The real service with a preloaded library in place of the SPI device and the processor lines.

#include "system/SatnavdTest.h"

namespace {

using namespace std::string_literals;
using namespace test;
using namespace testing;

using SatnavdControl = test::SatnavdTest;

TEST_F(SatnavdControl, UnitN2ReadsItsReceiver) {
  publish_unit({"--var", "hwversion=n2"});
  Tap tap(broker);
  std::filesystem::create_directories(folder / "gpio124");
  for (const char* const file : {"direction", "edge"}) folder.write(std::string("gpio124/") + file, "");
  folder.write("gpio124/value", "0");  // while it is low, there is something to read
  const auto service = satnavd("disable_hw_init = false\ngnss_device =\n", {},
                               preloaded({"SATNAVD_TEST_SPI=4", "SATNAVD_TEST_GPIO=" + folder / ""}));
  ASSERT_TRUE(service->wait_for_output("checkSpiGpioConnection(). num_errors 0 gpio_values", PATIENCE_MS))
      << service->err();
  EXPECT_TRUE(tap.gets(20, VALID)) << service->err();
  for (const auto& fix : tap.fixes()) EXPECT_GE(fix["body"]["nmea"].size(), 4U);
  EXPECT_EQ(text_of(folder / "gpio124/direction"), "in\0"s);
  EXPECT_EQ(text_of(folder / "gpio124/edge"), "falling\0"s);
  EXPECT_THAT(service->err(), Not(HasSubstr(" ERROR ")));
  expect_end(*service);
}

}  // namespace
