// The real service with a receiver on the SPI bus; a preloaded library stands in for the device and the line.

#include "system/SatnavdTest.h"

namespace {

using test::PATIENCE_MS;
using test::text_of;
using testing::HasSubstr;

class SatnavdSpi : public test::SatnavdTest {};

TEST_F(SatnavdSpi, UnitN2ReadsItsReceiver) {
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
  const std::string written = text_of(folder / "log");
  EXPECT_THAT(written, HasSubstr("gpio124/direction 696e00\n"));
  EXPECT_THAT(written, HasSubstr("gpio124/edge 66616c6c696e6700\n"));
  EXPECT_THAT(service->err(), testing::Not(HasSubstr(" ERROR ")));
  service->signal(SIGTERM);
  EXPECT_EQ(service->wait_for_exit(2000), 0);
}

}  // namespace
