#pragma once

#include <cstdint>
#include <string>

namespace ecu::koru::gpspub {

/// The vehicle's present requests to the receiver. Any thread.
class IReceiverRequests {
 public:
  virtual ~IReceiverRequests() = default;
  [[nodiscard]] virtual bool radioSilence() const = 0;
  [[nodiscard]] virtual bool gnssAntennaOn() const = 0;
  /// Returns the wanted systems: bit 0 GPS, 1 GLONASS, 2 BeiDou, 3 Galileo.
  [[nodiscard]] virtual uint32_t gnssSystemRequested() const = 0;
  /// Returns the hardware version signal of the bus; empty until it comes.
  [[nodiscard]] virtual std::string hwVersion() const = 0;
  /// Returns true if the receiver is to be configured anew, once for all requests made since the last call.
  [[nodiscard]] virtual bool takeRestart() = 0;
};

}  // namespace ecu::koru::gpspub
