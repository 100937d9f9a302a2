#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "core/FixReport.h"
#include "platform/base/ServiceManager.h"
#include "platform/com/Transport.h"
#include "proto/nvxproto.pb.h"

namespace ecu::koru::gpspub {

/// What a mode knows for the reports. Service thread.
class IReportedMode {
 public:
  virtual ~IReportedMode() = default;
  /// Returns the present facts.
  [[nodiscard]] virtual FixFacts fixFacts() const = 0;
  /// Sets the fields that the mode knows.
  virtual void fillHealth(pb::GnssHealth& health) const = 0;
};

/// Says how the service is: in the log, to the service manager and, on the health topic, on the bus. Each
/// gets the same state and reason (FixReport). Service thread. Times are us of stopwatch 0.
class ServiceReports {
 public:
  explicit ServiceReports(std::shared_ptr<com::ITransportClient> transport)
      : m_transport(std::move(transport)) {}

  // Settings, before begins().
  /// `manager` is not null.
  void setServiceManager(std::unique_ptr<ServiceManager> manager) { m_manager = std::move(manager); }
  /// From begins() on, publishes pb::GnssHealth, retained, on `topic`: at each change of state, when the
  /// broker is back, and every 10 s. `version` is the service's.
  void setHealthTopic(std::string topic, std::string version);

  /// The service begins to run.
  void begins();
  /// The service has stopped running.
  void ends();
  /// `mode` runs from now on. It must outlive this object.
  void modeBegins(const IReportedMode& mode);
  void gnssIsOff();

  /// Reports what has become due. Call it at the start of every pass.
  void passBegins();
  /// Takes the facts of the mode. Call it after each position published, at least once a second in any mode.
  void look();
  /// Returns when passBegins() is to be called next, or NEVER.
  [[nodiscard]] int64_t due() const;

 private:
  void reportChange(FixState before);
  void publishHealth(FixState state, const std::string& reason);
  [[nodiscard]] pb::GnssHealth health(FixState state, const std::string& reason) const;

  const std::shared_ptr<com::ITransportClient> m_transport;
  std::unique_ptr<ServiceManager> m_manager = std::make_unique<ServiceManager>();
  const IReportedMode* m_mode = nullptr;  // null before the first
  bool m_is_gnss_off = false;
  FixReport m_fix_report{0};
  int64_t m_begin_us = 0;

  std::string m_health_topic;  // empty: no health
  std::string m_version;
  int64_t m_health_due_us = NEVER;
  bool m_was_connected = false;
};

/// Returns the message that the broker is to publish on the health topic if the service dies.
[[nodiscard]] com::Message healthLastWill(const std::string& version);

}  // namespace ecu::koru::gpspub
