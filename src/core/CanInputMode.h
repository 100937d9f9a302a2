#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "core/FixPublisher.h"
#include "core/RunControl.h"
#include "observe/GnssIcanObserver.h"
#include "platform/com/Transport.h"

namespace ecu::koru::gpspub {

/// CAN-input mode: republishes the position that another unit sends. Owned by the service. Service thread.
class CanInputMode final : public IReportedMode {
 public:
  CanInputMode(std::shared_ptr<com::ITransportClient> transport, RunControl& run, FixPublisher& publisher);

  /// Returns after GNSS is switched off or the service is stopped.
  void runIcan();
  void unsubscribeIcanMessages();

  // IReportedMode
  [[nodiscard]] FixFacts fixFacts() const override { return m_facts; }
  void fillHealth(pb::GnssHealth& health) const override {
    health.set_fixes(m_fixes);
    health.set_messages_dropped(m_unsent);
  }

 private:
  void subscribeIcanMessages();
  void sendFrameUsingIcan();

  const std::shared_ptr<com::ITransportClient> m_transport_client;
  RunControl& m_run;
  FixPublisher& m_publisher;
  const std::shared_ptr<GnssIcanObserver> m_gnss_ican_observer;
  std::vector<std::string> m_no_sentences;
  FixFacts m_facts{.source = FixFacts::Source::CAN};
  uint64_t m_fixes = 0;   // valid positions
  uint64_t m_unsent = 0;  // positions, for want of a broker
  uint32_t m_comm_retries = 0;
};

}  // namespace ecu::koru::gpspub
