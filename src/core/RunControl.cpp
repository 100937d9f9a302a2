#include "core/RunControl.h"

#include <algorithm>
#include <string_view>

#include "platform/base/Logging.h"
#include "platform/base/Time.h"
#include "wire/Stopwatch.h"

namespace ecu::koru::gpspub {

namespace {
constexpr int64_t WAIT_SLICE_US = 100'000;
}

void RunControl::passBegins() const {
  m_service_manager->progress();
  logging::tell_kept_back();
}

void RunControl::waitWhileRunning(int64_t us) const {
  const int64_t end = GnssUtils::getMicrosecDuration(0) + us;
  for (int64_t left = us; m_running && left > 0; left = end - GnssUtils::getMicrosecDuration(0)) {
    passBegins();
    time_source().sleep_ns(std::min(left, WAIT_SLICE_US) * 1000);
  }
}

void RunControl::reportStatus(bool has_broker, bool has_receiver, int32_t gnss_status) const {
  std::string_view text = "no fix";
  if (!has_broker) {
    text = "no broker";
  } else if (!has_receiver) {
    text = "no receiver";
  } else if (gnss_status > 1) {
    text = gnss_status == 3 ? "valid fix" : "fix with a warning";
  }
  m_service_manager->status(text);
}

}  // namespace ecu::koru::gpspub
