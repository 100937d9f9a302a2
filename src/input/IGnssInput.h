#pragma once

#include <cstdint>
#include <string>

#include "platform/base/WakeUp.h"

namespace ecu::koru::gpspub {

/// The kind of the framed item. OVER_LONG means all bytes held: a "$" whose line has not ended within the
/// longest length.
enum class ItemKind { NONE, NMEA_LINE, UBX_FRAME, OVER_LONG };

/// What has passed through an input since it was made.
struct InputCounts {
  uint64_t bytes_received = 0;     ///< on SPI with the fill bytes of its blocks
  uint64_t bytes_discarded = 0;    ///< of those, what was dropped because it belonged to no item
  uint64_t bad_ubx_checksums = 0;  ///< frames whose checksum was wrong
};

/// The source of the receiver's bytes. It owns one receive buffer. read() fills it and frames at most one
/// NMEA line or UBX message, which stays valid until the next read(). Service thread only.
class IGnssInput {
 public:
  virtual ~IGnssInput() = default;

  /// Opens the device. Returns false if it cannot be opened; errno then says why. Only some of the failures
  /// are logged.
  [[nodiscard]] virtual bool connect() = 0;
  /// Closes the device. The buffer keeps its bytes.
  virtual void disconnect() = 0;
  /// Returns true if there is something to read() within `timeout_us` (less than a second). Returns early,
  /// with false, when woken.
  [[nodiscard]] virtual bool waiting(int timeout_us) = 0;
  /// Returns true if it framed an item.
  [[nodiscard]] virtual bool read() = 0;
  /// Returns the length of the framed item.
  [[nodiscard]] virtual int getMessageLength() = 0;
  /// Returns the start of the framed item.
  [[nodiscard]] virtual unsigned char* getBuffer() = 0;
  /// Sends bytes to the receiver. Returns the number sent, negative on failure.
  virtual int sendBinary(const unsigned char* data, int len) = 0;
  virtual void setGnssDeviceName(const std::string& /*name*/) {}
  /// Sets the speed of the next connect(). Returns false if it is not supported; the last one set then holds.
  virtual bool setBaudRate(unsigned int /*baud*/) { return true; }
  [[nodiscard]] virtual bool isConnected() = 0;
  /// Moves on to the next speed to try; it takes effect at the next connect().
  virtual void tryNextBaudRate() = 0;
  /// Returns the speed in bit/s, but 9600 for 4800.
  [[nodiscard]] virtual unsigned int getBaudRate() = 0;
  /// Returns how many items were framed, UBX frames too, starting from the number given to
  /// setLinesReceived().
  [[nodiscard]] virtual int getLinesReceived() = 0;
  virtual void setLinesReceived(int lines) = 0;
  virtual void setTxReadyCheck(bool /*on*/) {}
  /// From now on `wake` ends waiting(). It must outlive the input.
  virtual void setWakeUp(WakeUp& /*wake*/) {}
  [[nodiscard]] virtual int readGpioTxRdyPin() { return 0; }

  /// Returns what was framed. A UBX frame is complete and has the right checksum.
  [[nodiscard]] virtual ItemKind getItemKind() = 0;
  /// Returns the bytes held in the buffer, including the framed item.
  [[nodiscard]] virtual int getBytesWaiting() = 0;
  [[nodiscard]] virtual InputCounts getCounts() = 0;
  /// Empties the buffer. The next connect() also drops the bytes that the device has received.
  virtual void clearBuffer() = 0;
  /// Returns true if waiting() or read() found that the device went away (unplugged, hung up, end of file),
  /// until the next connect().
  [[nodiscard]] virtual bool isDeviceGone() = 0;
};

}  // namespace ecu::koru::gpspub
