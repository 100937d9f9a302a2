#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "sim/gnss/Descriptor.h"

namespace bench {

/// Sees when other programs open, write to and close a device, whoever is at its other end. Failures throw
/// std::system_error.
class DeviceWatch {
 public:
  enum class Act { OPENED, WRITTEN, CLOSED };
  struct Sight {
    Act act;
    int64_t at_ns;  ///< since boot
  };

  /// `device` may be a link.
  explicit DeviceWatch(const std::string& device);

  /// Returns what happened since the last call. Waits for the first for at most `timeout_ms`.
  [[nodiscard]] std::vector<Sight> take(int timeout_ms = 0) const;

 private:
  ecu::koru::sim::Descriptor m_events;
};

}  // namespace bench
