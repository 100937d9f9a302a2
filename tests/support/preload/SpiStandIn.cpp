#include "SpiStandIn.h"

#include <time.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <mutex>
#include <span>
#include <string>

#include "sim/gnss/Receiver.h"

namespace spi_stand_in {

namespace {

using namespace ecu::koru;

constexpr int64_t US_PER_S = 1'000'000;
constexpr long NS_PER_US = 1000;

int64_t now_us(clockid_t clock) {
  timespec now{};
  clock_gettime(clock, &now);
  return int64_t{now.tv_sec} * US_PER_S + now.tv_nsec / NS_PER_US;
}

sim::ReceiverOptions options() {
  sim::ReceiverOptions options;
  options.spi = true;
  options.start_us = now_us(CLOCK_MONOTONIC);
  options.utc_start_us = now_us(CLOCK_REALTIME);
  const char* const text = getenv("SATNAVD_TEST_SPI");
  if (text == nullptr) return options;
  const std::string words = text;
  options.rate_hz = std::stoi(words);
  if (const size_t blank = words.find(' '); blank != std::string::npos)
    options.faults = sim::parse_faults(words.substr(blank + 1));
  return options;
}

std::mutex mutex;

/// The receiver as of now. The mutex is held.
sim::Receiver& receiver() {
  static sim::Receiver instance(options());
  instance.advance_to(now_us(CLOCK_MONOTONIC));
  return instance;
}

}  // namespace

int transfer(const spi_ioc_transfer& record) {
  const std::lock_guard lock(mutex);
  // NOLINTBEGIN(performance-no-int-to-ptr): the driver's record holds addresses as numbers
  receiver().transfer({reinterpret_cast<const uint8_t*>(record.tx_buf), record.len},
                      {reinterpret_cast<uint8_t*>(record.rx_buf), record.len});
  // NOLINTEND(performance-no-int-to-ptr)
  return static_cast<int>(record.len);
}

char line_level() {
  const std::lock_guard lock(mutex);
  return receiver().tx_ready_level() ? '1' : '0';
}

int wait_for_line(int64_t timeout_us) {
  const int64_t end_us = now_us(CLOCK_MONOTONIC) + timeout_us;
  while (line_level() == '1') {
    const int64_t left_us = end_us - now_us(CLOCK_MONOTONIC);
    if (left_us <= 0) return 0;
    int64_t next_us = 0;
    {
      const std::lock_guard lock(mutex);
      next_us = receiver().next_byte_us();
    }
    const int64_t until_us = std::clamp(next_us, end_us - left_us + 1, end_us);
    const timespec until{static_cast<time_t>(until_us / US_PER_S),
                         static_cast<long>(until_us % US_PER_S) * NS_PER_US};
    if (const int error = clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr); error != 0) {
      errno = error;
      return -1;
    }
  }
  return 1;
}

}  // namespace spi_stand_in
