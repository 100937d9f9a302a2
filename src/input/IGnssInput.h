#pragma once

#include <string>

namespace ecu::koru::gpspub {

/// Where the receiver's bytes come from. It owns one receive buffer; read() fills it and frames at most one
/// NMEA line or UBX message, which stays valid until the next read(). Service thread only.
class IGnssInput {
 public:
  virtual ~IGnssInput() = default;

  /// Opens the device. False when it cannot be opened; logged now and then, not every time.
  [[nodiscard]] virtual bool connect() = 0;
  /// Closes the device; what the buffer holds survives.
  virtual void disconnect() = 0;
  /// True when there is something to read() within `timeout_us` (less than a second).
  [[nodiscard]] virtual bool waiting(int timeout_us) = 0;
  /// True when one item was framed.
  [[nodiscard]] virtual bool read() = 0;
  /// Length of the framed item.
  [[nodiscard]] virtual int getMessageLength() = 0;
  /// Where the framed item begins.
  [[nodiscard]] virtual unsigned char* getBuffer() = 0;
  /// Sends bytes to the receiver; the number sent, negative on failure.
  virtual int sendBinary(const unsigned char* data, int len) = 0;
  virtual void setGnssDeviceName(const std::string& /*name*/) {}
  /// The speed of the next connect(). False, nothing changed but the hunt, when the speed is not supported.
  virtual bool setBaudRate(unsigned int /*baud*/) { return true; }
  [[nodiscard]] virtual bool isConnected() = 0;
  /// Moves on to the next speed to try; it takes effect at the next connect().
  virtual void tryNextBaudRate() = 0;
  /// bit/s
  [[nodiscard]] virtual unsigned int getBaudRate() = 0;
  /// Items framed since setLinesReceived().
  [[nodiscard]] virtual int getLinesReceived() = 0;
  virtual void setLinesReceived(int lines) = 0;
  virtual void setTxReadyCheck(bool /*on*/) {}
  [[nodiscard]] virtual int readGpioTxRdyPin() { return 0; }

  /// Bytes held in the buffer, the framed item included.
  [[nodiscard]] virtual int getBytesWaiting() = 0;
  /// Forgets what the buffer holds, and what the device has received when it is opened next.
  virtual void clearBuffer() = 0;
  /// True when waiting() or read() found that the device went away (unplugged, hung up, end of file); until
  /// the next connect().
  [[nodiscard]] virtual bool isDeviceGone() = 0;
};

}  // namespace ecu::koru::gpspub
