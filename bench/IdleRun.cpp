#include "bench/IdleRun.h"

#include <chrono>
#include <ctime>

#include "bench/CanFrames.h"
#include "bench/ServiceRun.h"
#include "bench/Stop.h"

namespace bench {

namespace {

constexpr int WARM_UP_S = 6;
constexpr std::chrono::milliseconds TO_FRAMES{500};  // from a reading of the figures to the next frames

}  // namespace

IdleResult measureIdle(const IdleState& state, int seconds) {
  const ServiceRun service({.device = "/dev/no-receiver", .unit = state.unit});
  Clock::time_point second = Clock::now();
  const auto pass = [&](int count) {
    for (int i = 0; i < count; ++i, second += std::chrono::seconds(1)) {
      restUntil(second + TO_FRAMES);
      if (state.has_frames) sendCanFrames(service.bus(), std::time(nullptr));
    }
    restUntil(second);
  };
  pass(WARM_UP_S);
  const size_t published = service.publications().size();
  const ProcessFigures first = service.figures();
  pass(seconds);
  const ProcessFigures last = service.figures();
  return {service.publications().size() - published, loadBetween(first, last, seconds)};
}

}  // namespace bench
