#include "core/RunControl.h"

#include <algorithm>

#include "platform/base/Logging.h"
#include "platform/base/Time.h"

namespace ecu::koru::gpspub {

namespace {

constexpr int64_t NS_PER_US = 1000;
constexpr int32_t FIX_WITH_WARNING = 2;
constexpr int32_t VALID_FIX = 3;

}  // namespace

RunControl::RunControl(BusRequests& requests, std::shared_ptr<com::ITransportClient> transport)
    : m_requests(requests), m_transport(std::move(transport)) {
  m_transport->on_connection_change([this] { wake(); });
}

RunControl::~RunControl() {
  m_transport->on_connection_change({});
}

void RunControl::passBegins() {
  m_service_manager->status(statusText());
  m_service_manager->progress();
  logging::tell_kept_back();
}

int64_t RunControl::reportDue() const {
  const int64_t due_ns = m_service_manager->due_ns();
  if (due_ns == NEVER) return NEVER;
  const int64_t left_ns = std::max<int64_t>(due_ns - time_source().steady_ns(), 0);
  return GnssUtils::getMicrosecDuration(0) + (left_ns + NS_PER_US - 1) / NS_PER_US;
}

void RunControl::waitOnce(int64_t due_us) {
  const int64_t left_us = std::min(due_us, reportDue()) - GnssUtils::getMicrosecDuration(0);
  time_source().wait_ns(m_requests.wakeUp(), left_us * NS_PER_US);
}

bool RunControl::waitForFrame(int64_t ns) {
  passBegins();
  if (inMode()) waitOnce(GnssUtils::getMicrosecDuration(0) + (ns + NS_PER_US - 1) / NS_PER_US);
  return inMode();
}

void RunControl::reportPosition(bool has_receiver, int32_t gnss_status) {
  if (!has_receiver) {
    m_report = Report::NO_RECEIVER;
  } else if (gnss_status < FIX_WITH_WARNING) {
    m_report = Report::NO_FIX;
  } else {
    m_report = gnss_status == VALID_FIX ? Report::VALID : Report::WARNING;
  }
}

std::string_view RunControl::statusText() const {
  if (m_report == Report::NOTHING) return {};
  if (m_report == Report::GNSS_OFF) return "GNSS is switched off";
  if (!m_transport->is_connected()) return "no broker";
  if (m_report == Report::NO_RECEIVER) return "no receiver";
  if (m_report == Report::NO_FIX) return "no fix";
  return m_report == Report::VALID ? "valid fix" : "fix with a warning";
}

}  // namespace ecu::koru::gpspub
