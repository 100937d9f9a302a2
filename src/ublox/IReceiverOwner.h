#pragma once

#include <cstdint>

namespace ecu::koru::gpspub {

/// Why the receiver's device is closed.
enum class CloseReason {
  MODE_ENDS,      ///< GNSS is switched off or the service stops.
  SILENT,         ///< Nothing has come for too long.
  DEVICE_GONE,    ///< It was unplugged.
  WAKING,         ///< The receiver was reset at the end of radio silence.
  CHANGING_RATE,  ///< The receiver was told to change its baud rate.
  NEXT_RATE       ///< The receiver is sought at another baud rate.
};

/// The part of the service that receiver control uses. Service thread.
class IReceiverOwner {
 public:
  virtual ~IReceiverOwner() = default;
  /// Takes the flags of NAV-TIMEUTC: 1 time of week valid, 2 week number valid, 4 UTC valid.
  virtual void setUtcValidFlags(uint8_t flags) = 0;
  /// Closes the receiver's device. The receiver is then found and configured anew; for the two changes of
  /// rate the sequence goes on.
  virtual void disconnect(CloseReason reason) = 0;
};

}  // namespace ecu::koru::gpspub
