#pragma once

#include "proto/nvxproto.pb.h"
#include "publish/IGnssPublish.h"

namespace ecu::koru::gpspub {

/// Returns GnssData.status of the position: GnssInfo::getStatus(), but 2 instead of 3 at 0 N 0 E, which means
/// that the receiver has no fix.
[[nodiscard]] int32_t publishedStatus(const GnssInfo& info);

/// Publishes the fix as an enveloped pb::GnssData on "system/gnss/data". A value that is not available is
/// absent from the message.
class GnssPublishMqtt final : public IGnssPublish {
 public:
  void publishFrame(std::shared_ptr<com::ITransportClient>& client, GnssInfo& info,
                    std::vector<std::string>& nmeaSentences) override;

 private:
  // Not state: the next message reuses the memory of the last one.
  pb::GnssData m_data;
  com::Message m_message;
};

}  // namespace ecu::koru::gpspub
