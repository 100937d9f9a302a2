#pragma once

#include <cstdint>

#include "platform/com/Transport.h"
#include "tools/tap/Recording.h"

namespace ecu::koru::tap {

/// Publishes recorded messages: same topic, same bytes, same retained flag. For one thread.
class Replay {
 public:
  /// `transport` outlives it.
  explicit Replay(com::ITransportClient& transport) : m_transport(transport) {}

  void publish(const RecordedMessage& recorded);

  [[nodiscard]] uint64_t published() const { return m_published; }
  /// Returns how many messages were lost, because the broker was away or did not read.
  [[nodiscard]] uint64_t dropped() const { return m_dropped; }

 private:
  com::ITransportClient& m_transport;
  uint64_t m_published = 0;
  uint64_t m_dropped = 0;
};

}  // namespace ecu::koru::tap
