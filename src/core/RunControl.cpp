#include "core/RunControl.h"

#include <algorithm>
#include <utility>

#include "platform/base/Time.h"

namespace ecu::koru::gpspub {

namespace {
constexpr int64_t NS_PER_US = 1000;
}  // namespace

RunControl::RunControl(BusRequests& requests, std::shared_ptr<com::ITransportClient> transport)
    : m_requests(requests), m_transport(std::move(transport)), m_reports(m_transport) {
  m_transport->on_connection_change([this] { wake(); });
}

RunControl::~RunControl() {
  m_transport->on_connection_change({});
}

void RunControl::waitOnce(int64_t due_us) {
  const int64_t left_us = std::min(due_us, m_reports.due()) - GnssUtils::getMicrosecDuration(0);
  time_source().wait_ns(m_requests.wakeUp(), left_us * NS_PER_US);
}

bool RunControl::waitForFrame(int64_t ns) {
  m_reports.passBegins();
  if (inMode()) waitOnce(GnssUtils::getMicrosecDuration(0) + (ns + NS_PER_US - 1) / NS_PER_US);
  return inMode();
}

}  // namespace ecu::koru::gpspub
