#include "publish/GnssPublishSystime.h"

#include "nmea/GnssInfo.h"
#include "platform/com/Topics.h"
#include "publish/SignalGroups.h"
#include "publish/TimeDate.h"

namespace ecu::koru::gpspub {

void GnssPublishSystime::publishFrame(std::shared_ptr<com::ITransportClient>& client, GnssInfo& info,
                                      std::vector<std::string>& /*nmeaSentences*/) {
  publishGroup(*client, topic::SYSTIME_TD, GnssUtils::create_Timedate_Var6_Message, topic::TD_RX, info);
}

}  // namespace ecu::koru::gpspub
