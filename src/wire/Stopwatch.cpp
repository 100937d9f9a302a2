#include "wire/Stopwatch.h"

#include <array>

#include "platform/base/Time.h"

namespace ecu::koru::gpspub::GnssUtils {

namespace {

std::array<int64_t, 8> start{};  // steady ns

}  // namespace

void initDuration() {
  start.fill(time_source().steady_ns());
}

void setDurationStart(unsigned idx) {
  if (idx < start.size()) start[idx] = time_source().steady_ns();
}

int64_t getMicrosecDuration(unsigned idx) {
  return idx < start.size() ? (time_source().steady_ns() - start[idx]) / 1000 : 0;
}

}  // namespace ecu::koru::gpspub::GnssUtils
