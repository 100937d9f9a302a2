#pragma once

#include <termios.h>

#include <memory>
#include <string>

#include "input/BaudRate.h"
#include "input/IGnssInput.h"
#include "input/ReceiveBuffer.h"
#include "input/TerminalDevice.h"

namespace ecu::koru::gpspub {

/// The receiver on a serial port. Owned by the service, service thread only.
class SerialInput final : public IGnssInput {
 public:
  explicit SerialInput(std::unique_ptr<ITerminalDevice> device = makeTerminalDevice());
  ~SerialInput() override;
  SerialInput(const SerialInput&) = delete;
  SerialInput& operator=(const SerialInput&) = delete;

  [[nodiscard]] bool connect() override;
  void disconnect() override;
  [[nodiscard]] bool waiting(int timeout_us) override;
  [[nodiscard]] bool read() override;
  [[nodiscard]] int getMessageLength() override { return m_received.bytesRead(); }
  [[nodiscard]] unsigned char* getBuffer() override { return m_received.begin(); }
  int sendBinary(const unsigned char* data, int len) override;
  void setGnssDeviceName(const std::string& name) override { m_gnss_device = name; }
  bool setBaudRate(unsigned int baud) override { return m_baud.set(baud); }
  [[nodiscard]] bool isConnected() override { return m_fd_serial != -1; }
  void tryNextBaudRate() override { m_baud.tryNext(); }
  [[nodiscard]] unsigned int getBaudRate() override { return m_baud.hunted(); }
  [[nodiscard]] int getLinesReceived() override { return m_received.numLines(); }
  void setLinesReceived(int lines) override { m_received.setNumLines(lines); }
  [[nodiscard]] ItemKind getItemKind() override { return m_received.itemKind(); }
  [[nodiscard]] int getBytesWaiting() override { return m_received.bytesWaiting(); }
  [[nodiscard]] long long bytesDiscarded() const { return m_received.bytesDiscarded(); }
  void clearBuffer() override;
  [[nodiscard]] bool isDeviceGone() override { return m_device_gone || m_received.isFlooded(); }

 private:
  void applyAttributes();
  void logAttributes(const termios& attributes) const;
  [[nodiscard]] int readDevice();
  void logSent(const unsigned char* data, int len) const;

  const std::unique_ptr<ITerminalDevice> m_device;
  std::string m_gnss_device;
  int m_fd_serial = -1;
  ReceiveBuffer m_received;
  BaudRate m_baud;
  bool m_device_gone = false;
  bool m_drop_device_input = false;  // a closed pseudo-terminal or USB adapter goes on receiving
  bool m_attributes_failure_logged = false;
  bool m_is_terminal = true;
};

}  // namespace ecu::koru::gpspub
