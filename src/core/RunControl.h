#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <utility>

#include "core/BusRequests.h"
#include "platform/base/ServiceManager.h"

namespace ecu::koru::gpspub {

/// Decides whether the service and its mode go on, and reports to the service manager. Service thread, except
/// where marked.
class RunControl {
 public:
  explicit RunControl(BusRequests& requests) : m_requests(requests) {}

  /// `manager` is not null. Before the service runs.
  void setServiceManager(std::unique_ptr<ServiceManager> manager) { m_service_manager = std::move(manager); }
  [[nodiscard]] ServiceManager& serviceManager() const { return *m_service_manager; }

  /// Ends the mode and the service. Any thread, and signal handlers.
  void stop() {
    m_running = false;
    m_requests.setGnssOn(false);
  }
  [[nodiscard]] bool isRunning() const { return m_running; }
  [[nodiscard]] bool isGnssOn() const { return m_requests.gnssOn(); }
  /// Returns true while a mode is to go on. Any thread.
  [[nodiscard]] bool inMode() const { return isRunning() && isGnssOn(); }

  /// Call it at the start of every pass. Reports progress and logs how many records were kept back.
  void passBegins() const;
  /// Sleeps, but at most until stop().
  void waitWhileRunning(int64_t us) const;
  /// Reports the state of the position about to be published. `gnss_status` is GnssInfo::getStatus()
  /// of that position.
  void reportStatus(bool has_broker, bool has_receiver, int32_t gnss_status) const;

 private:
  BusRequests& m_requests;
  std::atomic<bool> m_running{true};
  std::unique_ptr<ServiceManager> m_service_manager = std::make_unique<ServiceManager>();
};

}  // namespace ecu::koru::gpspub
