#pragma once

#include <memory>
#include <string>
#include <vector>

#include "nmea/GnssInfo.h"
#include "platform/com/Transport.h"

namespace ecu::koru::gpspub {

/// Publishes finished fixes. Service thread only.
class IGnssPublish {
 public:
  virtual ~IGnssPublish() = default;
  /// `nmeaSentences` are those of the epoch, with CR LF. A message that cannot be made is logged and dropped.
  virtual void publishFrame(std::shared_ptr<com::ITransportClient>& client, GnssInfo& info,
                            std::vector<std::string>& nmeaSentences) = 0;
};

}  // namespace ecu::koru::gpspub
