#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string_view>
#include <utility>

#include "core/BusRequests.h"
#include "observe/GnssIcanObserver.h"
#include "platform/base/ServiceManager.h"
#include "platform/com/Transport.h"
#include "wire/Stopwatch.h"

namespace ecu::koru::gpspub {

/// Decides whether the service and its mode go on, waits for what comes next and reports to the service
/// manager. Service thread, except where marked. Times in us come from stopwatch 0.
class RunControl final : public IFrameWait {
 public:
  RunControl(BusRequests& requests, std::shared_ptr<com::ITransportClient> transport);
  ~RunControl() override;
  RunControl(const RunControl&) = delete;
  RunControl& operator=(const RunControl&) = delete;

  /// `manager` is not null. Before the service runs.
  void setServiceManager(std::unique_ptr<ServiceManager> manager) { m_service_manager = std::move(manager); }
  [[nodiscard]] ServiceManager& serviceManager() const { return *m_service_manager; }

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

  /// Call it at the start of every pass. Reports progress and logs how many records were kept back.
  void passBegins();
  /// Returns when passBegins() is to be called next, or NEVER.
  [[nodiscard]] int64_t reportDue() const;
  /// Waits until `due_us`, and returns early when woken or at reportDue().
  void waitOnce(int64_t due_us);
  /// Waits until `due_us` or until `done` returns true, which is asked again after every wake-up.
  template <class Done>
  void waitUntil(int64_t due_us, Done done) {
    while (!done() && GnssUtils::getMicrosecDuration(0) < due_us) {
      passBegins();
      waitOnce(due_us);
    }
  }
  // IFrameWait
  [[nodiscard]] bool waitForFrame(int64_t ns) override;

  /// Reports the state of the position about to be published. `gnss_status` is GnssInfo::getStatus()
  /// of that position.
  void reportPosition(bool has_receiver, int32_t gnss_status);
  void reportGnssOff() { m_report = Report::GNSS_OFF; }

 private:
  enum class Report { NOTHING, GNSS_OFF, NO_RECEIVER, NO_FIX, WARNING, VALID };
  [[nodiscard]] std::string_view statusText() const;

  BusRequests& m_requests;
  const std::shared_ptr<com::ITransportClient> m_transport;
  std::atomic<bool> m_running{true};
  Report m_report = Report::NOTHING;
  std::unique_ptr<ServiceManager> m_service_manager = std::make_unique<ServiceManager>();
};

}  // namespace ecu::koru::gpspub
