#pragma once

#include <string>
#include <vector>

#include "sim/gnss/Descriptor.h"

namespace bench {

/// The socket on which a service manager gets the reports of its service. Failures throw std::system_error.
class NotifySocket {
 public:
  NotifySocket();

  /// Returns the value for NOTIFY_SOCKET.
  [[nodiscard]] const std::string& name() const { return m_name; }
  /// Returns the reports since the last call, such as "STATUS=starting". Never waits.
  [[nodiscard]] std::vector<std::string> take() const;

 private:
  ecu::koru::sim::Descriptor m_socket;
  std::string m_name;
};

}  // namespace bench
