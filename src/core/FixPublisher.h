#pragma once

#include <memory>
#include <string>
#include <vector>

#include "core/Unit.h"
#include "nmea/GnssInfo.h"
#include "observe/TimeZoneObserver.h"
#include "platform/com/Transport.h"
#include "publish/IGnssPublish.h"

namespace ecu::koru::gpspub {

/// Hands fixes to the publishers that this unit has. Service thread.
class FixPublisher {
 public:
  FixPublisher(std::shared_ptr<com::ITransportClient> transport, const Unit& unit);

  [[nodiscard]] const std::shared_ptr<TimeZoneObserver>& timeZoneObserver() const {
    return m_time_zone_observer;
  }
  [[nodiscard]] bool isConnected() const { return m_transport->is_connected(); }
  [[nodiscard]] bool isOnVehicleBuses() const { return m_publish_can != nullptr; }

  /// Fills in the time zone and publishes the fix as position data, and to the unit's time service.
  void publishGnssData(GnssInfo& info, std::vector<std::string>& sentences);
  /// Publishes the fix on the vehicle's buses.
  void publishOnCan(GnssInfo& info, std::vector<std::string>& sentences);

 private:
  void fillTimeZone(GnssInfo& info) const;

  std::shared_ptr<com::ITransportClient> m_transport;
  const std::unique_ptr<IGnssPublish> m_publish_mqtt;
  const std::unique_ptr<IGnssPublish> m_publish_can;      // null: this hardware has no vehicle buses
  const std::unique_ptr<IGnssPublish> m_publish_systime;  // null: this unit does not serve the time
  const std::shared_ptr<TimeZoneObserver> m_time_zone_observer = std::make_shared<TimeZoneObserver>();
};

}  // namespace ecu::koru::gpspub
