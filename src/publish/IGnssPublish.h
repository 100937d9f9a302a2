#pragma once

#include <memory>
#include <string>
#include <vector>

#include "nmea/GnssInfo.h"
#include "platform/com/Transport.h"

namespace ecu::koru::gpspub {

/// Takes one finished fix to its subscribers. Service thread only.
class IGnssPublish {
 public:
  virtual ~IGnssPublish() = default;
  /// `nmeaSentences` are the epoch's sentences with their CR LF. What cannot be published is logged and gone.
  virtual void publishFrame(std::shared_ptr<com::ITransportClient>& client, GnssInfo& info,
                            std::vector<std::string>& nmeaSentences) = 0;
};

}  // namespace ecu::koru::gpspub
