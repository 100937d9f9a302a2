#include "publish/GnssPublishSystime.h"

#include "nmea/GnssInfo.h"
#include "platform/com/Topics.h"
#include "publish/TimeDate.h"

namespace ecu::koru::gpspub {

void GnssPublishSystime::publishFrame(std::shared_ptr<com::ITransportClient>& client, GnssInfo& info,
                                      std::vector<std::string>& /*nmeaSentences*/) {
  com::Message message;
  if (GnssUtils::create_Timedate_Var6_Message(topic::TD_RX, info, message)) {
    client->publish(topic::SYSTIME_TD, message);
  }
}

}  // namespace ecu::koru::gpspub
