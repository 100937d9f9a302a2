#pragma once

#include "publish/IGnssPublish.h"

namespace ecu::koru::gpspub {

/// Publishes the UTC of each fix on "systime/td", for the unit's own time service: the time/date group in the
/// layout of the bus's feedback group (PGN 65254).
class GnssPublishSystime final : public IGnssPublish {
 public:
  void publishFrame(std::shared_ptr<com::ITransportClient>& client, GnssInfo& info,
                    std::vector<std::string>& nmeaSentences) override;
};

}  // namespace ecu::koru::gpspub
