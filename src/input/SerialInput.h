#pragma once

#include <termios.h>

#include <memory>
#include <span>
#include <string>

#include "input/IGnssInput.h"
#include "input/TerminalDevice.h"

namespace ecu::koru::gpspub {

/// The receiver on a serial port, and the receive buffer with its framing.
///
/// The byte stream mixes NMEA lines ("$" ... CR LF) and UBX messages (0xB5 0x62 class id length payload
/// checksum). read() frames one item at a time in place; corrupt bytes are dropped from the front and
/// counted. In a framed NMEA line the LF is overwritten with NUL. A 0xB5 that no 0x62 follows stops framing
/// until the buffer overflows or is cleared; the receiver never sends one outside a UBX header.
///
/// An input on another transport derives from this class to share buffer, framing and speeds. It opens and
/// closes its own device and passes no terminal.
class SerialInput : public IGnssInput {
 public:
  static constexpr int INPUT_BUFFER_SIZE = 10240;

  explicit SerialInput(std::unique_ptr<ITerminalDevice> device = std::make_unique<TerminalDevice>());
  ~SerialInput() override;
  SerialInput(const SerialInput&) = delete;
  SerialInput& operator=(const SerialInput&) = delete;

  [[nodiscard]] bool connect() override;
  void disconnect() override;
  [[nodiscard]] bool waiting(int timeout_us) override;
  [[nodiscard]] bool read() override;
  [[nodiscard]] int getMessageLength() override { return m_bytes_read; }
  [[nodiscard]] unsigned char* getBuffer() override { return m_buffer.get() + m_front; }
  int sendBinary(const unsigned char* data, int len) override;
  void setGnssDeviceName(const std::string& name) override { m_gnss_device = name; }
  bool setBaudRate(unsigned int baud) override;
  [[nodiscard]] bool isConnected() override { return m_fd_serial != -1; }
  void tryNextBaudRate() override;
  /// Returns 9600 for 4800, which has no place in the hunting order.
  [[nodiscard]] unsigned int getBaudRate() override;
  [[nodiscard]] int getLinesReceived() override { return m_num_lines; }
  void setLinesReceived(int lines) override { m_num_lines = lines; }
  [[nodiscard]] int getBytesWaiting() override { return m_bytes_waiting; }
  void clearBuffer() override;
  [[nodiscard]] bool isDeviceGone() override { return m_device_gone; }

  /// Returns the bytes dropped since construction, by resynchronisation or overflow.
  [[nodiscard]] long long bytesDiscarded() const { return m_bytes_discarded; }

 protected:
  static constexpr int MIN_ITEM_LEN = 2;

  void removeFramedItem();
  /// Tries to frame one item, and tries again as long as that drops bytes.
  [[nodiscard]] bool frameItem();
  /// Calls frameItem() for bytes just read, `unpaced_bytes` of them from a source without a pace of its own.
  /// After more than 65536 of these without an item the device counts as gone.
  [[nodiscard]] bool frameNewBytes(int unpaced_bytes);
  /// Drops all bytes. `text` begins the log record.
  void dumpBuffer(const char* text);
  void emptyBuffer();
  /// Appends to the bytes already held, which move only if they must. Bytes that do not fit are dropped.
  void append(std::span<const unsigned char> bytes);
  [[nodiscard]] int freeBytes() const { return m_buffer_size - m_bytes_waiting; }
  /// Returns how many bytes fit without a move.
  [[nodiscard]] int freeBytesAtTheEnd() const { return freeBytes() - m_front; }
  /// Forgets the state of the previous device.
  void beginConnection();

  std::string m_gnss_device;
  int m_fd_serial = -1;
  int m_bytes_read = 0;     // length of the framed item, removed by the next read()
  int m_bytes_waiting = 0;  // bytes held, the framed item included
  bool m_device_gone = false;
  bool m_drop_device_input = false;  // a closed pseudo-terminal or USB adapter goes on receiving

 private:
  // Framing.cpp. The parsers return true if a complete item begins at the front.
  [[nodiscard]] bool parseLine();
  [[nodiscard]] bool parseForEndOfLine();
  [[nodiscard]] bool parseUbloxLine();
  void discardUntilSync();
  void discard(int bytes);

  void applyAttributes();
  void logAttributes(const termios& attributes) const;
  [[nodiscard]] unsigned char* freeTail();
  [[nodiscard]] int readDevice();
  void logSent(const unsigned char* data, int len) const;

  std::unique_ptr<ITerminalDevice> m_device;
  std::unique_ptr<unsigned char[]> m_buffer;
  int m_front = 0;          // where the held bytes begin; the next read from the device moves them down
  int m_bytes_scanned = 0;  // bytes of the incomplete front line without LF
  long long m_bytes_discarded = 0;
  int m_buffer_size = INPUT_BUFFER_SIZE;
  int m_max_nmea_len = 4096;
  int m_max_ublox_payload = 4096;
  speed_t m_baud_configured = B19200;
  speed_t m_baud_current = B19200;
  int m_num_lines = 0;
  bool m_attributes_failure_logged = false;
  bool m_is_terminal = true;
  int m_unframed_bytes = 0;  // unpaced bytes since the last item
};

}  // namespace ecu::koru::gpspub
