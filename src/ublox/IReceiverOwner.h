#pragma once

#include <cstdint>
#include <string>

namespace ecu::koru::gpspub {

/// What receiver control asks of the service. Service thread.
class IReceiverOwner {
 public:
  virtual ~IReceiverOwner() = default;
  /// The vehicle asks for radio silence.
  [[nodiscard]] virtual bool radioSilenceRequested() const = 0;
  /// The hardware version signal of the bus; empty before it came.
  [[nodiscard]] virtual std::string hwVersionSignal() const = 0;
  /// NAV-TIMEUTC: 1 time of week valid, 2 week number valid, 4 UTC valid.
  virtual void setUtcValidFlags(uint8_t flags) = 0;
  /// Closes the receiver's device; it is found and configured anew.
  virtual void disconnect() = 0;
};

}  // namespace ecu::koru::gpspub
