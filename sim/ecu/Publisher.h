#pragma once

#include <vector>

#include "platform/com/Transport.h"
#include "sim/ecu/UnitState.h"

namespace ecu::koru::sim {

/// Sends publications to the broker. For the main thread. The transport must outlive it.
class Publisher {
 public:
  explicit Publisher(com::ITransportClient& transport) : m_transport(transport) {}

  /// Sends all of them in order, and waits up to 2 s for each while the connection has no room. Returns false
  /// as soon as one cannot be sent.
  [[nodiscard]] bool send(const std::vector<Publication>& publications);

  /// Does the same and waits up to 5 s until the broker returns the last one: then it has them all. The last
  /// one must be the parameter map.
  [[nodiscard]] bool send_confirmed(const std::vector<Publication>& publications);

 private:
  [[nodiscard]] bool send_one(const Publication& publication);

  com::ITransportClient& m_transport;
};

}  // namespace ecu::koru::sim
