#pragma once

#include <linux/spi/spidev.h>

#include <cstdint>
#include <string_view>

/// The simulated receiver in place of the device /dev/spidev2.0 and of its TX-ready line, on the machine's
/// clock. Switched on by the first use; SATNAVD_TEST_SPI holds its rate in Hz and, behind a blank, faults as
/// gnss-sim takes them. Any thread.
namespace spi_stand_in {

inline constexpr std::string_view DEVICE = "/dev/spidev2.0";

/// Carries out one transfer and returns its length.
int transfer(const spi_ioc_transfer& record);
/// The TX-ready line's level, '0' or '1'.
char line_level();
/// Waits until the line is low: 1; 0 after the time-out, -1 when a signal came (errno EINTR).
int wait_for_line(int64_t timeout_us);

}  // namespace spi_stand_in
