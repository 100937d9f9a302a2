#pragma once

#include <cstdint>
#include <string>

namespace ecu::koru::gpspub {

/// The part of the service that receiver control uses. Service thread.
class IReceiverOwner {
 public:
  virtual ~IReceiverOwner() = default;
  /// Returns true while the vehicle asks for radio silence.
  [[nodiscard]] virtual bool radioSilenceRequested() const = 0;
  /// Returns the hardware version signal of the bus; empty until it comes.
  [[nodiscard]] virtual std::string hwVersionSignal() const = 0;
  /// Takes the flags of NAV-TIMEUTC: 1 time of week valid, 2 week number valid, 4 UTC valid.
  virtual void setUtcValidFlags(uint8_t flags) = 0;
  /// Closes the receiver's device. The receiver is then found and configured anew.
  virtual void disconnect() = 0;
};

}  // namespace ecu::koru::gpspub
