#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "core/BusRequests.h"
#include "core/ServiceReports.h"
#include "observe/GnssIcanObserver.h"
#include "platform/com/Transport.h"
#include "wire/Stopwatch.h"

namespace ecu::koru::gpspub {

/// Decides whether the service and its mode go on, and waits for what comes next. Service thread, except
/// where marked. Times in us come from stopwatch 0.
class RunControl final : public IFrameWait {
 public:
  RunControl(BusRequests& requests, std::shared_ptr<com::ITransportClient> transport);
  ~RunControl() override;
  RunControl(const RunControl&) = delete;
  RunControl& operator=(const RunControl&) = delete;

  [[nodiscard]] ServiceReports& reports() { return m_reports; }

  /// Ends the mode and the service. Any thread, and signal handlers.
  void stop() {
    m_running = false;
    m_requests.setGnssOn(false);
    wake();
  }
  [[nodiscard]] bool isRunning() const { return m_running; }
  [[nodiscard]] bool isGnssOn() const { return m_requests.gnssOn(); }
  /// Returns true while a mode is to go on. Any thread.
  [[nodiscard]] bool inMode() const { return isRunning() && isGnssOn(); }

  /// Ends the present wait, or the next one. Any thread, and signal handlers.
  void wake() override { m_requests.wakeUp().wake(); }

  /// Waits until `due_us`, and returns early when woken or when a report is due.
  void waitOnce(int64_t due_us);
  /// Waits until `due_us` or until `done` returns true, which is asked again after every wake-up.
  template <class Done>
  void waitUntil(int64_t due_us, Done done) {
    while (!done() && GnssUtils::getMicrosecDuration(0) < due_us) {
      m_reports.passBegins();
      waitOnce(due_us);
    }
  }
  // IFrameWait
  [[nodiscard]] bool waitForFrame(int64_t ns) override;

 private:
  BusRequests& m_requests;
  const std::shared_ptr<com::ITransportClient> m_transport;
  std::atomic<bool> m_running{true};
  ServiceReports m_reports;
};

}  // namespace ecu::koru::gpspub
