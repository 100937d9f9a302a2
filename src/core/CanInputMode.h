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
class CanInputMode {
 public:
  CanInputMode(std::shared_ptr<com::ITransportClient> transport, RunControl& run, FixPublisher& publisher);

  /// Returns after GNSS is switched off or the service is stopped.
  void runIcan();
  void unsubscribeIcanMessages();

 private:
  void subscribeIcanMessages();
  void sendFrameUsingIcan();

  const std::shared_ptr<com::ITransportClient> m_transport_client;
  RunControl& m_run;
  FixPublisher& m_publisher;
  const std::shared_ptr<GnssIcanObserver> m_gnss_ican_observer;
  std::vector<std::string> m_no_sentences;
  uint32_t m_comm_retries = 0;
};

}  // namespace ecu::koru::gpspub
