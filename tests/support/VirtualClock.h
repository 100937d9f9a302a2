#pragma once

#include "platform/base/Time.h"

namespace test {

/// Virtual time for all code as long as this exists.
struct VirtualClock {
  explicit VirtualClock(int64_t boot_ns = 1'000'000'000'000, int64_t wall_us = 0) : time(boot_ns, wall_us) {
    ecu::koru::set_time_source(&time);
  }
  ~VirtualClock() { ecu::koru::set_time_source(nullptr); }
  VirtualClock(const VirtualClock&) = delete;
  VirtualClock& operator=(const VirtualClock&) = delete;

  ecu::koru::VirtualTime time;
};

}  // namespace test
