// The real service, its receiver at another rate.

#include "system/SatnavdTest.h"

namespace {

using test::text_of;
using testing::HasSubstr;

class SatnavdControl : public test::SatnavdTest {};

TEST_F(SatnavdControl, FindsTheReceiverAtAnotherRateAndSetsIt) {
  constexpr int HUNT_MS = 50'000;
  publish_unit();
  const std::string trace = folder / "trace";
  const auto simulator = receiver({"--baud", "57600", "--trace", trace});
  test::Tap tap(broker);
  const auto service = satnavd("disable_hw_init = false\n");
  const auto before = test::clock_ns(CLOCK_BOOTTIME);
  const auto is_set = [&] {
    return text_of(trace).find(" host> CFG-PRT UART1 38400 baud") != std::string::npos;
  };
  ASSERT_TRUE(test::eventually(is_set, HUNT_MS)) << text_of(trace);
  EXPECT_GT(test::clock_ns(CLOCK_BOOTTIME) - before, 10'000'000'000);
  EXPECT_EQ(test::occurrences(service->err(), "Change Baud rate from 57600 to 38400"), 1U) << service->err();
  EXPECT_TRUE(tap.gets(3, test::VALID));
  EXPECT_THAT(text_of(trace), HasSubstr("-- speed 38400"));
  EXPECT_THAT(text_of(trace), testing::Not(HasSubstr("reset")));
}

}  // namespace
