#pragma once

#include "publish/IGnssPublish.h"

namespace ecu::koru::gpspub {

/// Tells the unit's own time service the UTC of each fix: the time/date group, laid out as the bus's feedback
/// group (PGN 65254), on "systime/td".
class GnssPublishSystime final : public IGnssPublish {
 public:
  void publishFrame(std::shared_ptr<com::ITransportClient>& client, GnssInfo& info,
                    std::vector<std::string>& nmeaSentences) override;
};

}  // namespace ecu::koru::gpspub
