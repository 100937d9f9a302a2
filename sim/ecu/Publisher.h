#pragma once

#include <memory>
#include <vector>

#include "platform/com/Transport.h"
#include "sim/ecu/UnitState.h"

namespace ecu::koru::sim {

/// Hands publications to the broker. Main thread; the transport must outlive it.
class Publisher {
 public:
  explicit Publisher(com::ITransportClient& transport);

  /// Sends all, in order; waits a moment while the connection has no room. False as soon as one cannot be
  /// sent.
  [[nodiscard]] bool send(const std::vector<Publication>& publications);

  /// The same, and waits until the broker has given the last one back: then it has them all. Its topic must
  /// be that of the parameter map.
  [[nodiscard]] bool send_confirmed(const std::vector<Publication>& publications);

 private:
  class Echo;

  [[nodiscard]] bool send_one(const Publication& publication);

  com::ITransportClient& m_transport;
  std::shared_ptr<Echo> m_echo;
};

}  // namespace ecu::koru::sim
