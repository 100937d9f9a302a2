#pragma once

#include "publish/IGnssPublish.h"

namespace ecu::koru::gpspub {

/// Publishes the fix as signal groups of the vehicle's buses: VP1 (PGN 65267), VP2 (64502), VDS (65256), time
/// and date (65254), P2C1 (65313), and its time stamp. A value that is not available is sent as all ones. If
/// one group cannot be made, the others are still sent.
class GnssPublishCAN final : public IGnssPublish {
 public:
  /// Sends VP1, P2C1, VP2, VDS, time and date, time stamp, in this order. A fix that cannot be trusted
  /// (m_receiver_flag 0) becomes a warning in `info`, for all groups.
  void publishFrame(std::shared_ptr<com::ITransportClient>& client, GnssInfo& info,
                    std::vector<std::string>& nmeaSentences) override;

  // Each fills `out` with the packed group. It logs and returns false if that fails.
  [[nodiscard]] static bool create_VP1_Base_Message(const GnssInfo& info, com::Message& out);
  [[nodiscard]] static bool create_VP2_Base_Message(const GnssInfo& info, com::Message& out);
  [[nodiscard]] static bool create_VDS_Base_Message(const GnssInfo& info, com::Message& out);
  [[nodiscard]] static bool create_P2C1_Base_Message(const GnssInfo& info, com::Message& out);
  [[nodiscard]] static bool create_gnss_timestamp_ns(const GnssInfo& info, com::Message& out);

 private:
  static void publish_VP1_Base(std::shared_ptr<com::ITransportClient>& client, const GnssInfo& info);
  static void publish_VP2_Base(std::shared_ptr<com::ITransportClient>& client, const GnssInfo& info);
  static void publish_VDS_Base(std::shared_ptr<com::ITransportClient>& client, const GnssInfo& info);
  static void publish_P2C1_Base(std::shared_ptr<com::ITransportClient>& client, const GnssInfo& info);
  static void publish_timeDate_Var6(std::shared_ptr<com::ITransportClient>& client, const GnssInfo& info);
  static void publish_gnss_timestamp_ns(std::shared_ptr<com::ITransportClient>& client, const GnssInfo& info);
};

}  // namespace ecu::koru::gpspub
